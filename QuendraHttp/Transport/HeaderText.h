#pragma once

#include <string_view>

/// Whether a text cannot be sent in a header line. Prevents text from a server from adding headers to a request.
[[nodiscard]] inline bool BreaksHeader(std::wstring_view text) noexcept
{
    return text.find_first_of(std::wstring_view(L"\r\n\0", 3)) != std::wstring_view::npos;
}
