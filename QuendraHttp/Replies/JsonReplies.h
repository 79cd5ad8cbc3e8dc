#pragma once

/// @file
/// Single members of JSON replies, and replies in the trace. Each function parses the whole reply. None throws for what a server
/// sent: a reply that cannot be read counts as one without the member.

#include "Replies/JsonLibrary.h"

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <string>

/// A member of the reply's top-level object; null where there is none.
[[nodiscard]] Json::Value GetJSONValueFromResponse(const ResponseBuffer& response, const char* key);

/// A string member of the reply's top-level object.
/// @return false, leaving `text` alone, for a member of another type or none.
[[nodiscard]] bool GetJSONStringFromResponse(const ResponseBuffer& response, const char* key, std::string& text);

/// A boolean member of the reply's top-level object; the strings "true" and "false" count as well.
/// @return false, leaving `value` alone, for anything else.
[[nodiscard]] bool GetJSONBoolFromResponse(const ResponseBuffer& response, const char* key, bool& value);

/// Reads what the server has of a chunked upload.
/// @param[out] offset  left alone where the reply does not tell, like `locked`.
/// @return 13 for a reply that is no JSON object.
[[nodiscard]] ResultCode GetMetaDataFromResponse(const ResponseBuffer& response, std::int64_t* offset, std::uint32_t* locked);

/// Traces a reply, indented where it is JSON. Costs nothing when nobody listens.
void LogResponse(const ResponseBuffer& response);
