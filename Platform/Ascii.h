#pragma once

/// @file
/// ASCII characters and the case of ASCII letters, the same for every user and language.

#include <algorithm>
#include <string_view>

/// Whether a text, narrow or wide, holds ASCII characters only.
template <typename Text> [[nodiscard]] constexpr bool IsAscii(const Text& text)
{
    return std::all_of(text.begin(), text.end(), [](auto character) { return static_cast<char32_t>(character) < 0x80; });
}

/// The lower-case letter of an upper-case one; any other character unchanged.
template <typename Character> [[nodiscard]] constexpr Character LowerAscii(Character character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<Character>(character - 'A' + 'a') : character;
}

/// The upper-case letter of a lower-case one; any other character unchanged.
template <typename Character> [[nodiscard]] constexpr Character UpperAscii(Character character)
{
    return character >= 'a' && character <= 'z' ? static_cast<Character>(character - 'a' + 'A') : character;
}

/// Whether two texts are equal when the case of ASCII letters is ignored.
[[nodiscard]] constexpr bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}
