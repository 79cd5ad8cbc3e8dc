#pragma once

/// @file
/// Comparison of text without regard to case. To compare UTF-8 with ASCII, `EqualIgnoringAsciiCase` gives the answer of `EqualIgnoringCase`
/// without conversion to wide text: no other letter equals an ASCII one.

#include "Platform/Ascii.h"

#include <string_view>

/// Whether two texts are equal when case is ignored: ordinal, the same for every user and language, and right for non-ASCII
/// text (`L"ÄRGER"` equals `L"ärger"`). One character matches one character, so "ß" does not equal "SS".
[[nodiscard]] bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right);
