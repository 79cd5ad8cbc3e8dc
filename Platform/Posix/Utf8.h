#pragma once

/// @file
/// UTF-8 for internal use in the platform layer: names and paths for the system, header lines for a server.

#include <optional>
#include <string>
#include <string_view>

namespace Quendra::Platform
{

/// Surrogate pairs become their code point; lone surrogates and values beyond Unicode become U+FFFD.
[[nodiscard]] std::string ToUtf8(std::wstring_view wide);

/// As `ToUtf8`, but nothing where the text is not valid Unicode: a file name must not become a different one.
[[nodiscard]] std::optional<std::string> ToUtf8Strict(std::wstring_view wide);

/// Invalid bytes become U+FFFD.
[[nodiscard]] std::wstring ToWideText(std::string_view utf8);

} // namespace Quendra::Platform
