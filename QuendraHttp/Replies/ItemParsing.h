#pragma once

/// @file
/// Turns a reply's body into attributes records, for every operation whose reply describes items.

#include "Replies/JsonLibrary.h"

#include "QuendraHttp/QuendraHttp.h"

#include <cstdint>
#include <functional>
#include <memory>

/// Appends the item that a JSON object describes, or the items if the object is a whole reply.
/// @param topLevel  the value is a whole reply: the items are in its "contents" or "document_info".
/// @return the number of records appended.
/// @throws Json::Exception for values that the JSON library cannot convert.
std::uint32_t ProcessJSONDictionary(const Json::Value& value, ServerItemList& list, bool topLevel);
/// As `ProcessJSONDictionary` for each element of an array; stops, without throwing, at an element that cannot be converted.
std::uint32_t ProcessJSONArray(const Json::Value& value, ServerItemList& list, bool topLevel);

/// Reads a reply that describes items. The body is parsed once. An unreadable body, or part of it, is not an error: it adds fewer records,
/// and earlier ones stay.
/// @param[in,out] children  appended to: the items that the reply holds in its "contents" or its "document_info".
/// @param[in,out] self      appended to: the reply itself as an item. May be the same list as `children`.
/// @param isParsed          called before the records are made, if given: may free the body, which is not read any more.
/// @return the number of records added to both.
std::uint32_t ExtractAttributes(const ResponseBuffer& response, ServerItemList& children, ServerItemList& self,
                                const std::function<void()>& isParsed = {});

/// The item of a reply that describes exactly one; null for a reply that describes none or several.
[[nodiscard]] std::shared_ptr<IServerAttributes> ExtractSingleItem(const ResponseBuffer& response);
