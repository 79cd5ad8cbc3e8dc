#pragma once

/// @file
/// How operations take server paths apart, and the query that names a revision.

#include "Tracing.h"

#include "QuendraHttp/QuendraHttp.h"

#include <string>

/// The text after the last "/"; the whole path where it has none.
[[nodiscard]] inline std::wstring LeafName(const std::wstring& path)
{
    return path.substr(path.rfind(L'/') + 1);
}

/// The text before the last "/"; the whole path where it has none, which is then its own parent.
[[nodiscard]] inline std::wstring ParentPath(const std::wstring& path)
{
    return path.substr(0, path.rfind(L'/'));
}

/// A path in two.
struct PathParts
{
    std::wstring directory;
    std::wstring name;
};

/// Divides a path at its last "\", or where it has none at its last "/"; a path with neither has neither part.
[[nodiscard]] inline PathParts SplitForRename(const std::wstring& path)
{
    std::size_t separator = path.rfind(L'\\');
    if (separator == std::wstring::npos)
        separator = path.rfind(L'/');
    if (separator == std::wstring::npos)
        return {};
    return {path.substr(0, separator), path.substr(separator + 1)};
}

/// The query that names an item's revision, traced.
/// @param query     the separator before it, "?" or "&".
/// @param revision  empty for none.
/// @return "?revision=12", or empty.
[[nodiscard]] std::string AddRevision(const std::string& query, const std::string& revision);

/// The same for an item; empty for no item.
[[nodiscard]] std::wstring RevisionSuffix(const char* separator, const IServerAttributes* item);
