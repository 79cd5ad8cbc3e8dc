#pragma once

#include "PathUtilities.h"

#include <string>

/// A caller's local path as the platform opens it, however long it is: a Windows path that reaches the classic limit takes its
/// extended-length form, which has to be absolute. Every other path stays as it is.
[[nodiscard]] inline std::wstring OpenablePath(const std::wstring& path)
{
    constexpr std::size_t classicLimit = 248; // that of folders, the shorter one
    if (path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\"))
        return path;
    const std::wstring absolute = PathUtilities::MakeAbsolute(path);
    const bool isLimited = !absolute.starts_with(L'/'); // paths of other systems are not
    return isLimited && absolute.size() >= classicLimit ? PathUtilities::NormalizePath(absolute) : path;
}
