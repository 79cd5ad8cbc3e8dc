#pragma once

/// @file
/// One change on the server, as the change feed reports it.

#include <cstdint>
#include <string>
#include <string_view>

/// What happened.
enum class NotificationType : std::int32_t
{
    Unknown = 0,
    Create = 1,
    Upload = 2,
    Move = 3,
    Copy = 4,
    Rename = 5,
    Delete = 6,
    Policy = 7,
    Update = 8,
    Mode = 9
};

/// Reads a server's text.
/// @param text  in any case.
/// @return `NotificationType::Unknown` for a text that is not known.
[[nodiscard]] NotificationType NotificationTypeFromString(std::wstring_view text);

/// One action of the change feed. The caller that receives one owns it.
class CNotificationAction
{
public:
    CNotificationAction() = default;
    virtual ~CNotificationAction() = default;

    CNotificationAction(const CNotificationAction&) = default; ///< A deep copy.
    /// @return this record.
    CNotificationAction& operator=(const CNotificationAction&) = default;

    NotificationType Type = NotificationType::Unknown; ///< what happened.
    std::wstring Value;                                ///< a path, or a mapping's name for `NotificationType::Mode`.
    std::wstring Value2;                               ///< the new path of a move or an update, the new mode; else empty.
};
