#include "TextConversion.h"

#include "Platform/Ascii.h"
#include "Platform/Platform.h"

#include <climits>

#include <algorithm>
#include <new>

namespace
{

UINT CodePage(NarrowEncoding encoding)
{
    return encoding == NarrowEncoding::Utf8 ? CP_UTF8 : CP_THREAD_ACP;
}

// The platform's functions take and return int, and return 0 if the result does not fit.
int CheckedSize(std::size_t size)
{
    if (size > INT_MAX)
        throw std::bad_alloc();
    return static_cast<int>(size);
}

std::size_t CheckedResult(int size)
{
    if (size <= 0)
        throw std::bad_alloc();
    return static_cast<std::size_t>(size);
}

} // namespace

std::wstring ToWide(std::string_view text, NarrowEncoding encoding)
{
    std::wstring wide;
    if (text.empty())
        return wide;
    // Most texts are ASCII, which needs no conversion.
    if (IsAscii(text))
        return std::wstring(text.begin(), text.end());
    const int size = CheckedSize(text.size());
    const UINT codePage = CodePage(encoding);
    wide.resize(CheckedResult(MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0)));
    CheckedResult(MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), static_cast<int>(wide.size())));
    return wide;
}

std::string ToNarrow(std::wstring_view text, NarrowEncoding encoding)
{
    std::string narrow;
    if (text.empty())
        return narrow;
    if (IsAscii(text))
    {
        narrow.resize(text.size());
        std::transform(text.begin(), text.end(), narrow.begin(), [](wchar_t c) { return static_cast<char>(c); });
        return narrow;
    }
    const int size = CheckedSize(text.size());
    const UINT codePage = CodePage(encoding);
    narrow.resize(CheckedResult(WideCharToMultiByte(codePage, 0, text.data(), size, nullptr, 0, nullptr, nullptr)));
    CheckedResult(WideCharToMultiByte(codePage, 0, text.data(), size, narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr));
    return narrow;
}

bool IsValidUtf8(std::string_view text)
{
    // The conversion replaces what is not UTF-8.
    return ToNarrow(ToWide(text)) == text;
}
