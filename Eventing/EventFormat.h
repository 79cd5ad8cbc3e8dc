#pragma once

/// @file
/// printf-style formatting of event messages, the same on every platform and of any length.

#include <cstdarg>
#include <string>

namespace Eventing
{

/// Formats a message as UTF-8.
///
/// - Text: `%s`, `%hs` narrow (taken as it is), `%S`, `%ls` wide (lone surrogates become U+FFFD); null text is "(null)". A
///   precision counts characters of the argument, a width counts bytes of the result.
/// - Numbers: `%d %i %u %o %x %X %c %p`, `%f %F %e %E %g %G %a %A`, with the lengths `hh h l ll j z t` and `I32 I64 I`.
/// - Flags, widths and precisions are the C library's, `*` included.
/// - What is none of these ends the formatting, since the arguments behind it cannot be known: the rest of the format is copied.
///
/// @param arguments  indeterminate afterwards, as after `vprintf`.
/// @throws std::bad_alloc, std::length_error where the message does not fit into memory.
[[nodiscard]] std::string FormatMessageText(const char* format, std::va_list arguments);

} // namespace Eventing
