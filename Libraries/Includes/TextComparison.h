#pragma once

/// @file
/// Comparison of text without regard to case.

#include <algorithm>
#include <string_view>

/// Whether two texts are equal when case is ignored: ordinal, the same for every user and language, and right for non-ASCII
/// text (`L"ÄRGER"` equals `L"ärger"`). One character matches one character, so "ß" does not equal "SS".
[[nodiscard]] bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right);

/// An ASCII letter in lower case; every other character as it is.
[[nodiscard]] constexpr char LowerAscii(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// Whether a UTF-8 text equals an ASCII one when case is ignored: the same answer as `EqualIgnoringCase`, which matches no other letter
/// with an ASCII one, without conversion to wide text.
[[nodiscard]] constexpr bool EqualIgnoringAsciiCase(std::string_view text, std::string_view ascii)
{
    return std::equal(text.begin(), text.end(), ascii.begin(), ascii.end(),
                      [](char left, char right) { return LowerAscii(left) == LowerAscii(right); });
}
