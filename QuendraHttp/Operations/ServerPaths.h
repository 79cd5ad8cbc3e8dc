#pragma once

/// @file
/// Splits server paths and builds the query that names a revision.

#include "ServerPath.h"
#include "Tracing.h"

#include "QuendraHttp/QuendraHttp.h"

#include <string>

/// The text before the last "/"; the whole path where it has none.
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

/// Splits a path at its last "\", or at its last "/" if it has no "\". Both parts are empty if it has neither.
[[nodiscard]] inline PathParts SplitForRename(const std::wstring& path)
{
    std::size_t separator = path.rfind(L'\\');
    if (separator == std::wstring::npos)
        separator = path.rfind(L'/');
    if (separator == std::wstring::npos)
        return {};
    return {path.substr(0, separator), path.substr(separator + 1)};
}

/// Builds and traces the query that names an item's revision.
/// @param query     the separator before it, "?" or "&".
/// @param revision  empty for none.
/// @return "?revision=12", or empty.
[[nodiscard]] std::string AddRevision(const std::string& query, const std::string& revision);

/// The same for an item; empty for no item.
[[nodiscard]] std::wstring RevisionSuffix(const char* separator, const IServerAttributes* item);
