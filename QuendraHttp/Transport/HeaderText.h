#pragma once

#include <string_view>

/// Whether a text would end a header line: nothing that a server sent may become structure of a request.
[[nodiscard]] inline bool BreaksHeader(std::wstring_view text) noexcept
{
    return text.find_first_of(std::wstring_view(L"\r\n\0", 3)) != std::wstring_view::npos;
}
