#pragma once

/// @file
/// UTF-8 to wide text and back, by the platform. Eventing stands below the library's own text conversion.

#include <string>
#include <string_view>

namespace Eventing
{

/// Lone surrogates become U+FFFD.
/// @throws std::bad_alloc where memory, or the platform's counts, do not suffice.
[[nodiscard]] std::string ToUtf8(std::wstring_view text);

/// Invalid bytes become U+FFFD.
/// @throws std::bad_alloc where memory, or the platform's counts, do not suffice.
[[nodiscard]] std::wstring FromUtf8(std::string_view text);

} // namespace Eventing
