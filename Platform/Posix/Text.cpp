// Text between UTF-8 and this platform's 32-bit wchar_t.

#include "../Ascii.h"
#include "CallGuard.h"
#include "Secret.h"
#include "Utf8.h"

#include <utf8.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <limits>

namespace Quendra::Platform
{

namespace
{

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

constexpr bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Calls `take` with each code point of the text; invalid ones become U+FFFD.
// @return whether the whole text was valid Unicode.
template <typename Take> bool ForEachCodePoint(std::wstring_view wide, Take take)
{
    bool unicode = true;
    for (std::size_t at = 0; at < wide.size(); ++at)
    {
        auto code = static_cast<char32_t>(wide[at]);
        if (IsHighSurrogate(code) && at + 1 < wide.size() && IsLowSurrogate(static_cast<char32_t>(wide[at + 1])))
        {
            code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<char32_t>(wide[++at]) - 0xDC00);
        }
        else if (IsHighSurrogate(code) || IsLowSurrogate(code) || code > 0x10FFFF)
        {
            code = kReplacement;
            unicode = false;
        }
        take(code);
    }
    return unicode;
}

bool AppendUtf8(std::wstring_view wide, std::string& utf8)
{
    // Grow once: the text may be secret, and growing leaves copies behind.
    const std::size_t begin = utf8.size();
    if (IsAscii(wide))
    {
        utf8.resize(begin + wide.size());
        std::transform(wide.begin(), wide.end(), utf8.data() + begin, [](wchar_t unit) { return static_cast<char>(unit); });
        return true;
    }
    std::size_t bytes = begin;
    const bool unicode = ForEachCodePoint(wide, [&](char32_t code) {
        bytes += code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    });
    utf8.resize(bytes);
    char* end = utf8.data() + begin;
    ForEachCodePoint(wide, [&](char32_t code) { end = utf8::unchecked::append(code, end); });
    return unicode;
}

bool IsKnownCodePage(UINT codePage)
{
    return codePage == CP_UTF8 || codePage == CP_ACP || codePage == CP_THREAD_ACP;
}

// Copies a converted text to the caller as Win32 does: a capacity of 0 asks for the size.
template <typename Character> DWORD Deliver(std::basic_string_view<Character> converted, Character* target, int capacity, int& count)
{
    if (converted.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return ERROR_INVALID_PARAMETER;
    const auto size = static_cast<int>(converted.size());
    if (capacity != 0)
    {
        if (size > capacity)
            return ERROR_INSUFFICIENT_BUFFER;
        std::copy(converted.begin(), converted.end(), target);
    }
    count = size;
    return ERROR_SUCCESS;
}

} // namespace

std::string ToUtf8(std::wstring_view wide)
{
    std::string utf8;
    AppendUtf8(wide, utf8);
    return utf8;
}

std::optional<std::string> ToUtf8Strict(std::wstring_view wide)
{
    std::string utf8;
    return AppendUtf8(wide, utf8) ? std::optional(std::move(utf8)) : std::nullopt;
}

std::wstring ToWideText(std::string_view utf8)
{
    std::string repaired;
    if (utf8::find_invalid(utf8.begin(), utf8.end()) != utf8.end())
    {
        utf8::replace_invalid(utf8.begin(), utf8.end(), std::back_inserter(repaired), kReplacement);
        utf8 = repaired;
    }
    std::wstring wide;
    wide.reserve(utf8.size());
    for (auto at = utf8.begin(); at != utf8.end();)
        wide.push_back(static_cast<wchar_t>(utf8::unchecked::next(at)));
    return wide;
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int bytes, LPWSTR wide, int capacity) noexcept
{
    int count = 0;
    SucceedsAsCall([&]() -> DWORD {
        if (!IsKnownCodePage(codePage) || flags != 0 || text == nullptr || bytes == 0 || capacity < 0 || (capacity > 0 && wide == nullptr))
            return ERROR_INVALID_PARAMETER;
        const auto size = bytes < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(bytes);
        const WipedAtEnd<std::wstring> converted{ToWideText({text, size})};
        return Deliver<wchar_t>(converted.text, wide, capacity, count);
    });
    return count;
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int characters, LPSTR text, int capacity, LPCSTR defaultCharacter,
                        BOOL* usedDefault) noexcept
{
    int count = 0;
    SucceedsAsCall([&]() -> DWORD {
        // As on Windows, where UTF-8 has no default character.
        const bool wantsDefault = defaultCharacter != nullptr || usedDefault != nullptr;
        if (!IsKnownCodePage(codePage) || flags != 0 || wantsDefault || wide == nullptr || characters == 0 || capacity < 0 ||
            (capacity > 0 && text == nullptr))
            return ERROR_INVALID_PARAMETER;
        const auto size = characters < 0 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(characters);
        const WipedAtEnd<std::string> converted{ToUtf8({wide, size})};
        return Deliver<char>(converted.text, text, capacity, count);
    });
    return count;
}

} // namespace Quendra::Platform
