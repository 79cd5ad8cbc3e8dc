#pragma once

/// @file
/// The functions that convert between narrow and wide text.

#include <string>
#include <string_view>

/// How narrow text is encoded.
enum class NarrowEncoding
{
    Utf8,      ///< what servers, JSON and this library's own narrow texts use.
    ThreadAnsi ///< the calling thread's ANSI code page (UTF-8 where the platform has none): what callers pass as `const char*`.
};

/// Converts narrow text to wide text. Invalid bytes become the platform's replacement character; embedded NULs are kept.
/// @param text      any bytes.
/// @param encoding  how they are encoded.
/// @return UTF-16 on Windows, UTF-32 elsewhere.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::wstring ToWide(std::string_view text, NarrowEncoding encoding = NarrowEncoding::Utf8);

/// Converts wide text to narrow text. Lone surrogates become the platform's replacement character; embedded NULs are kept.
/// @param text      UTF-16 on Windows, UTF-32 elsewhere.
/// @param encoding  how to encode it.
/// @return the encoded text.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string ToNarrow(std::wstring_view text, NarrowEncoding encoding = NarrowEncoding::Utf8);

/// @param text  any bytes.
/// @return whether the text is valid UTF-8.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] bool IsValidUtf8(std::string_view text);
