#pragma once

/// @file
/// Types of the platform's public headers that the library's interfaces need, in the platform's own layout.

#include <cstdint>

/// A 128-bit identifier, laid out as `<guiddef.h>` does.
struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
