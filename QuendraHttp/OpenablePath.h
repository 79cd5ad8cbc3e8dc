#pragma once

#include "PathUtilities.h"

#include <algorithm>
#include <string>

/// A caller's local path as the platform opens it, however long it is: an absolute Windows path beyond the classic limit takes its
/// extended-length form. Every other path stays as it is.
[[nodiscard]] inline std::wstring OpenablePath(const std::wstring& path)
{
    constexpr std::size_t classicLimit = 248; // that of folders, the shorter one
    const bool isDrivePath = path.size() > 2 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
    const bool isNetworkPath = path.starts_with(L"\\\\") && !path.starts_with(L"\\\\?\\");
    if (path.size() < classicLimit || !(isDrivePath || isNetworkPath))
        return path;
    // The extended form takes separators literally.
    std::wstring separated = path;
    std::replace(separated.begin(), separated.end(), L'/', L'\\');
    return PathUtilities::NormalizePath(separated);
}
