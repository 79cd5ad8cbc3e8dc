#pragma once

/// @file
/// Whole files, and stretches of them, up and down.

#include "Exchange.h"
#include "ItemStore.h"
#include "StateFolder.h"

namespace ApplianceParts
{

/// The content of an item, or with "skip" and "count" in the query a stretch of it; what lies beyond the end is left out.
[[nodiscard]] Reply Download(const Request& request, const ItemPath& path, const ItemStore& items);

/// Takes a multipart body with the item's fields and its file. The item changes when all of it has come, or not at all.
[[nodiscard]] Reply UploadFile(const Request& request, const ItemPath& path, ItemStore& items, const StateFolder& state);

/// A file's content as the reply.
[[nodiscard]] Reply ContentReply(FileContent content);

} // namespace ApplianceParts
