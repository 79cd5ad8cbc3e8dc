#pragma once

/// @file
/// Single members of JSON replies, and replies in the trace. Each function parses the whole reply. No reply makes them throw: an unreadable
/// one counts as having no such member.

#include "Replies/JsonLibrary.h"

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <string>

/// A member of the reply's top-level object; null where there is none.
[[nodiscard]] Json::Value GetJSONValueFromResponse(const ResponseBuffer& response, const char* key);

/// A string member of the reply's top-level object.
/// @return false, leaving `text` unchanged, if the member is missing or not a string.
[[nodiscard]] bool GetJSONStringFromResponse(const ResponseBuffer& response, const char* key, std::string& text);

/// A boolean member of the reply's top-level object; the strings "true" and "false" count as well.
/// @return false, leaving `value` unchanged, for anything else.
[[nodiscard]] bool GetJSONBoolFromResponse(const ResponseBuffer& response, const char* key, bool& value);

/// Reads the state of a chunked upload.
/// @param[out] offset  unchanged if the reply does not contain it, like `locked`.
/// @return `Result::InvalidData` if the reply is not a JSON object.
[[nodiscard]] ResultCode GetMetaDataFromResponse(const ResponseBuffer& response, std::int64_t* offset, std::uint32_t* locked);

/// Traces a reply, indented where it is JSON. Does nothing if tracing is off.
void LogResponse(const ResponseBuffer& response);
