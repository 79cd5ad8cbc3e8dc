#pragma once

/// @file
/// Functions that split server paths.

#include <cstddef>
#include <string>

/// @return the text after the last "/"; the whole path where it has none.
[[nodiscard]] inline std::wstring LeafName(const std::wstring& path)
{
    return path.substr(path.rfind(L'/') + 1);
}

/// @return the text before the last "/"; the whole path where it has none.
[[nodiscard]] inline std::wstring ParentPath(const std::wstring& path)
{
    return path.substr(0, path.rfind(L'/'));
}

/// The two parts of a path.
struct PathParts
{
    std::wstring directory;
    std::wstring name;
};

/// Splits a path at its last "\", or at its last "/" if it has no "\", as a rename does.
/// @return both parts empty if it has neither.
[[nodiscard]] inline PathParts SplitForRename(const std::wstring& path)
{
    std::size_t separator = path.rfind(L'\\');
    if (separator == std::wstring::npos)
        separator = path.rfind(L'/');
    if (separator == std::wstring::npos)
        return {};
    return {path.substr(0, separator), path.substr(separator + 1)};
}
