#pragma once

/// @file
/// Parses change-feed actions and folder mappings. No server reply makes these functions throw: an unreadable entry adds nothing. The
/// caller deletes the records.

#include "Mapping.h"
#include "NotificationAction.h"
#include "Replies/JsonLibrary.h"
#include "Tracing.h"

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <list>
#include <vector>

/// Appends the change-feed action, or those in "contents", that a JSON object describes.
/// @return the number of records appended; the functions below return the same.
std::uint32_t ProcessNotificationJSONDictionary(const Json::Value& value, std::list<CNotificationAction*>& actions);
std::uint32_t ProcessNotificationJSONArray(const Json::Value& value, std::list<CNotificationAction*>& actions);

/// Appends the mapping, or those in "contents", that a JSON object describes.
std::uint32_t ProcessMappingJSONDictionary(const Json::Value& value, std::vector<CMapping*>& mappings);
std::uint32_t ProcessMappingJSONArray(const Json::Value& value, std::vector<CMapping*>& mappings);

/// Reads the change-feed actions of a reply.
std::uint32_t GetNotificationsFromResponse(const ResponseBuffer& response, std::list<CNotificationAction*>& actions);

/// Reads the mappings of a reply.
std::uint32_t ReadMappings(const FunctionTraceScope& trace, const ResponseBuffer& response, std::vector<CMapping*>& mappings);
