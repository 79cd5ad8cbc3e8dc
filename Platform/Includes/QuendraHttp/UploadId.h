#pragma once

/// @file
/// The identifier of a chunked upload.

#if defined(_WIN32)
#include <guiddef.h>

namespace Quendra::Platform
{

using ::GUID;

} // namespace Quendra::Platform
#else
#include <cstdint>

namespace Quendra::Platform
{

/// A 128-bit identifier, laid out as `<guiddef.h>` does.
struct GUID
{
    std::uint32_t Data1;   ///< the first 8 hexadecimal digits of the text.
    std::uint16_t Data2;   ///< the next 4.
    std::uint16_t Data3;   ///< the next 4.
    std::uint8_t Data4[8]; ///< the rest, in pairs.
};

} // namespace Quendra::Platform
#endif

namespace Quendra
{

/// Chosen by the caller, best with `CoCreateGuid`, for all calls of one upload.
using UploadId = Platform::GUID;

} // namespace Quendra
