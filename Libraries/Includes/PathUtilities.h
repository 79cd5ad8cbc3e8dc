#pragma once

/// @file
/// Local paths as the platform's file calls want them.

#include <string>

namespace PathUtilities
{

/// Gives a local path the platform's extended-length form, in which it may be longer than the classic limit.
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

/// Makes a path absolute as the platform does, with the current folder where it starts from there; on Windows dots are resolved
/// and separators become backslashes.
/// @param path  local path.
/// @return the path as it was where the platform cannot tell.
[[nodiscard]] std::wstring MakeAbsolute(const std::wstring& path);

} // namespace PathUtilities
