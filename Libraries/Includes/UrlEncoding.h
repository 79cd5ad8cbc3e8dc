#pragma once

/// @file
/// Percent-encoding of wide text for request URLs and form bodies.

#include <string>
#include <string_view>

/// Where encoded text is used; decides what is kept besides `A`-`Z`, `a`-`z`, `0`-`9`, `-`, `.` and `_`.
enum class UrlEncodingMode
{
    Path, ///< a URL's path: `/` and `~` are kept, a space becomes `%20`.
    Form  ///< a form body's value: a space becomes `+`.
};

/// Encodes text as percent-escaped UTF-8, one upper-case escape for each byte that is not kept. The result is ASCII and holds no
/// control character, whatever the text holds. Unpaired surrogates are encoded as the replacement character.
/// @throws std::bad_alloc where memory runs out.
[[nodiscard]] std::string EncodeUrl(std::wstring_view text, UrlEncodingMode mode);
