#pragma once

/// @file
/// Bodies of multipart/form-data.

#include "Http.h"

#include <filesystem>
#include <ios>

namespace ApplianceParts
{

[[nodiscard]] bool IsMultipart(const Request& request);

struct Upload
{
    Fields fields;
    bool hasFile = false;
};

/// Reads a multipart body while it streams in. Fields and their number are bounded, the file is not.
/// @param file  takes the bytes of the file part, and is opened when that begins.
/// @param mode  std::ios::trunc, or std::ios::app to append.
/// @throws ApiError if the body is malformed or ends early, or the bytes cannot be written.
[[nodiscard]] Upload ReadUpload(const Request& request, const std::filesystem::path& file, std::ios::openmode mode = std::ios::trunc);

} // namespace ApplianceParts
