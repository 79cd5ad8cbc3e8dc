#pragma once

/// @file
/// Formats of event messages. `ReadConversion` parses their conversions both at compile time, to check the arguments, and when a message is
/// written.

#include <cstdarg>
#include <string>
#include <string_view>

namespace Eventing
{

/// The C type of a conversion's argument.
enum class ArgumentKind
{
    Narrow, ///< `const char*`, UTF-8.
    Wide,   ///< `const wchar_t*`.
    Int32,  ///< `int` or `unsigned`.
    Int64,  ///< `long long` or `unsigned long long`.
    Unknown ///< the conversion is not one of these.
};

/// A conversion of a format.
struct Conversion
{
    ArgumentKind kind;       ///< the type of its argument.
    std::string_view layout; ///< its flags, width and precision, as written.
    char type;               ///< its last character.
};

/// Parses a conversion: `%s` narrow text, `%S` wide text, `%d %u %x` 32-bit numbers, 64-bit ones with `ll` or `I64`, each with
/// the flags `-` and `0`, a width and a precision.
/// @param position  after the percent sign; then after the conversion, or at the first character that is not part of one.
constexpr Conversion ReadConversion(const char*& position)
{
    const char* const begin = position;
    while (*position == '-' || *position == '.' || (*position >= '0' && *position <= '9'))
        ++position;
    const std::string_view layout(begin, static_cast<std::size_t>(position - begin));
    const bool isInt64 = position[0] == 'I' && position[1] == '6' && position[2] == '4';
    const bool isLongLong = position[0] == 'l' && position[1] == 'l';
    position += isInt64 ? 3 : isLongLong ? 2 : 0;
    const bool isLong = isInt64 || isLongLong;
    const char type = *position;
    ArgumentKind kind = ArgumentKind::Unknown;
    if (type == 'd' || type == 'u' || type == 'x')
        kind = isLong ? ArgumentKind::Int64 : ArgumentKind::Int32;
    else if (!isLong && (type == 's' || type == 'S'))
        kind = type == 's' ? ArgumentKind::Narrow : ArgumentKind::Wide;
    if (kind != ArgumentKind::Unknown)
        ++position;
    return {kind, layout, type};
}

/// Formats a message as UTF-8, of any length and the same on every platform.
///
/// The conversions are those of `ReadConversion`, besides `%%`. Null text is "(null)". Any other conversion ends the formatting,
/// since the types of later arguments are then unknown: the rest of the format is copied.
///
/// @param arguments  indeterminate afterwards, as after `vprintf`.
/// @throws std::bad_alloc, std::length_error where the message does not fit into memory.
[[nodiscard]] std::string FormatMessageText(const char* format, std::va_list arguments);

} // namespace Eventing
