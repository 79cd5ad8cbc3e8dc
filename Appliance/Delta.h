#pragma once

/// @file
/// Deltas between files, in the format of librsync's rdiff.

#include <cstdio>
#include <filesystem>

namespace ApplianceParts::Delta
{

/// Whether this build supports deltas.
[[nodiscard]] bool IsAvailable();

/// Writes the delta from the file of the signature to the given one.
/// @throws ApiError if the signature is invalid.
void Make(const std::filesystem::path& signature, std::FILE& file, const std::filesystem::path& delta);

/// Writes the result of applying a delta to a file.
/// @throws ApiError if the delta is invalid, or not for this file.
void Apply(std::FILE& basis, const std::filesystem::path& delta, const std::filesystem::path& result);

} // namespace ApplianceParts::Delta
