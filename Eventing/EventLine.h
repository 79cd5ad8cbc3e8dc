#pragma once

/// @file
/// Events as lines of text for people.

#include "EventSink.h"

#include <string>
#include <string_view>

namespace Eventing
{

/// Makes a text that comes from elsewhere fit to stand in a line: whatever could end the line or rearrange it on a screen is
/// written as `\n`, `\x1B` or `\u202E`.
/// @param text  UTF-8; what is none becomes U+FFFD.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string EscapeLine(std::string_view text);

/// Formats an event as one line, without a line end:
///
///     2026-03-01T12:00:00.250Z    4711 ENTER NativeHttp:602       CNativeHttp::Login
///     2026-03-01T12:00:00.251Z    4711 INFO  NativeHttp:610         CNativeHttp::Login: Request Path: /login
///
/// These are UTC, the thread, what it is, source unit and line, and, indented by the depth of the call, function and message.
/// The whole is escaped, so that text which a server has sent never passes for a line of its own.
/// @param depth  how many traced functions of the thread enclose the event.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string FormatEventLine(const Event& event, unsigned depth);

} // namespace Eventing
