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

/// Parses a multipart body as a stream. The size and the number of fields are limited, the file's size is not.
/// @param file  receives the bytes of the file part; opened when that part begins.
/// @param mode  std::ios::trunc, or std::ios::app to append.
/// @throws ApiError if the body is malformed or ends early, or the bytes cannot be written.
[[nodiscard]] Upload ReadUpload(const Request& request, const std::filesystem::path& file, std::ios::openmode mode = std::ios::trunc);

} // namespace ApplianceParts
