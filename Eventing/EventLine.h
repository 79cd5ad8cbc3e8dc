#pragma once

/// @file
/// Events as readable lines of text.

#include "EventSink.h"

#include <string>
#include <string_view>

namespace Eventing
{

/// Escapes untrusted text for use in a line: characters that could end the line or change its display order are written as `\n`, `\x1B` or
/// `\u202E`.
/// @param text  UTF-8; invalid bytes become U+FFFD.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string EscapeLine(std::string_view text);

/// Formats an event as one line, without a line end:
///
///     2026-03-01T12:00:00.250Z    4711 ENTER NativeHttp:652       CNativeHttp::Login
///     2026-03-01T12:00:00.251Z    4711 INFO  NativeHttp:660         CNativeHttp::Login: Request Path: /sync/sessions
///
/// The fields are the UTC time, the thread, the kind, source unit and line, and, indented by call depth, function and message. The whole
/// line is escaped, so that text from a server cannot look like another line.
/// @param depth  how many traced functions of the thread enclose the event.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string FormatEventLine(const Event& event, unsigned depth);

} // namespace Eventing
