#pragma once

#include "PathUtilities.h"

#include <string>

/// A caller's local path as the platform opens it, however long it is. On Windows
///
/// | path                                    | is opened as              |
/// |-----------------------------------------|---------------------------|
/// | `\\?\...`                               | it is                     |
/// | `\??\...`                               | `\\?\...`                 |
/// | `\\.\...`                               | it is: a device           |
/// | any other whose absolute form is short  | it is                     |
/// | ... reaches the classic limit           | `\\?\` and that form      |
[[nodiscard]] inline std::wstring OpenablePath(const std::wstring& path)
{
    constexpr std::size_t classicLimit = 248; // the limit for folders, shorter than the limit for files
    const std::wstring absolute = PathUtilities::MakeAbsolute(path);
    if (absolute.starts_with(L'/') || path.starts_with(L"\\\\?\\"))
        return path; // other systems need no prefix
    if (path.starts_with(L"\\??\\"))
        return PathUtilities::NormalizePath(path);
    const bool isLimited = !absolute.starts_with(L"\\\\.\\");
    return isLimited && absolute.size() >= classicLimit ? PathUtilities::NormalizePath(absolute) : path;
}
