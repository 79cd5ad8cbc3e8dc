#pragma once

/// @file
/// Functions that split server paths.

#include <string>

/// @return the text after the last "/"; the whole path where it has none.
[[nodiscard]] inline std::wstring LeafName(const std::wstring& path)
{
    return path.substr(path.rfind(L'/') + 1);
}
