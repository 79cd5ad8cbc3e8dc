#pragma once

/// @file
/// UTF-8 for the platform layer's own use: names and paths that go to the system, header lines that go to a server.

#include <optional>
#include <string>
#include <string_view>

/// Surrogate pairs become their code point; lone surrogates and values beyond Unicode become U+FFFD.
[[nodiscard]] std::string ToUtf8(std::wstring_view wide);

/// As `ToUtf8`, but nothing where the text is no Unicode: a file name must not turn into another one.
[[nodiscard]] std::optional<std::string> ToUtf8Strict(std::wstring_view wide);

/// Invalid bytes become U+FFFD.
[[nodiscard]] std::wstring ToWideText(std::string_view utf8);
