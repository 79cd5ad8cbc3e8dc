#pragma once

/// @file
/// The query that names a revision.

#include "QuendraHttp/QuendraHttp.h"

#include <string>

/// Builds and traces the query that names an item's revision.
/// @param query     the separator before it, "?" or "&".
/// @param revision  empty for none.
/// @return "?revision=12", or empty.
[[nodiscard]] std::string AddRevision(const std::string& query, const std::string& revision);

/// The same for an item; empty for no item.
[[nodiscard]] std::wstring RevisionSuffix(const char* separator, const IServerAttributes* item);
