#pragma once

/// @file
/// Deltas between files, in the format of librsync's rdiff.

#include <filesystem>

namespace ApplianceParts::Delta
{

/// Whether this build has deltas.
[[nodiscard]] bool IsAvailable();

/// Writes what turns the file of the signature into the given one.
/// @throws ApiError where the signature is none.
void Make(const std::filesystem::path& signature, const std::filesystem::path& file, const std::filesystem::path& delta);

/// Writes what a delta makes of a file.
/// @throws ApiError where the delta is none, or not of this file.
void Apply(const std::filesystem::path& basis, const std::filesystem::path& delta, const std::filesystem::path& result);

} // namespace ApplianceParts::Delta
