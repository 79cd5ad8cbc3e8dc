#pragma once

/// @file
/// Conversion of local paths to the forms that the platform's file functions need.

#include <string>

namespace PathUtilities
{

/// Converts a local path to the extended-length form, which may be longer than MAX_PATH.
///
/// | path                  | result                    |
/// |-----------------------|---------------------------|
/// | `C:\dir\`             | `\\?\C:\dir`              |
/// | `\\server\share\x`    | `\\?\UNC\server\share\x`  |
/// | `\??\C:\dir`          | `\\?\C:\dir`              |
/// | `\\?\C:\dir`          | as it is                  |
/// | anything else         | as it is, and traced      |
///
/// One trailing backslash of a recognised path is dropped, even a drive's: `C:\` gives `\\?\C:`. Never fails.
/// @param path  local path.
/// @return the path to open.
[[nodiscard]] std::wstring NormalizePath(const std::wstring& path);

/// Makes a path absolute; a relative path starts in the current folder. On Windows dots are resolved and separators become backslashes.
/// @param path  local path.
/// @return the absolute path, or `path` unchanged on failure.
[[nodiscard]] std::wstring MakeAbsolute(const std::wstring& path);

} // namespace PathUtilities
