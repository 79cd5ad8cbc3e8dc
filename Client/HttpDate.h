#pragma once

/// @file
/// The time in an HTTP reply's "Date" header.

#include <chrono>
#include <optional>
#include <string_view>

/// Reads `Sun, 06 Nov 1994 08:49:37 GMT`; nothing for anything else.
[[nodiscard]] std::optional<std::chrono::sys_seconds> ParseHttpDate(std::string_view text);
