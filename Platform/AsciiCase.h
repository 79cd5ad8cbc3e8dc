#pragma once

/// @file
/// The case of ASCII letters, the same for every user and language. Every other character stays as it is.

#include <algorithm>
#include <string_view>

template <class Character> [[nodiscard]] constexpr Character LowerAscii(Character character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<Character>(character - 'A' + 'a') : character;
}

template <class Character> [[nodiscard]] constexpr Character UpperAscii(Character character)
{
    return character >= 'a' && character <= 'z' ? static_cast<Character>(character - 'a' + 'A') : character;
}

/// Whether two texts are equal when the case of ASCII letters is ignored.
[[nodiscard]] constexpr bool EqualIgnoringAsciiCase(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}
