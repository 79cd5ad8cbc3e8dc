// Random identifiers and their text form.

#include "Win32.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/random.h>

namespace Quendra::Platform
{

namespace
{

// Braces, 32 hexadecimal digits, four hyphens and the terminator.
constexpr int kTextLength = 39;

// Writes the value's digits, most significant first, and returns the place after them.
template <typename Number> wchar_t* PutHex(wchar_t* out, Number value)
{
    constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    for (int shift = static_cast<int>(sizeof(value)) * 8 - 4; shift >= 0; shift -= 4)
        *out++ = kDigits[(static_cast<std::uint32_t>(value) >> shift) & 0xFU];
    return out;
}

} // namespace

HRESULT CoCreateGuid(GUID* guid) noexcept
{
    if (guid == nullptr)
        return E_FAIL;
    std::array<std::uint8_t, sizeof(GUID)> random = {};
    // A read of up to 256 bytes is complete, but a signal can interrupt it before the system's source is ready.
    ssize_t count = -1;
    do
    {
        count = ::getrandom(random.data(), random.size(), 0);
    } while (count < 0 && errno == EINTR);
    if (count != static_cast<ssize_t>(random.size()))
        return E_FAIL;
    std::memcpy(guid, random.data(), random.size());
    guid->Data3 = static_cast<std::uint16_t>((guid->Data3 & 0x0FFFU) | 0x4000U);
    guid->Data4[0] = static_cast<std::uint8_t>((guid->Data4[0] & 0x3FU) | 0x80U);
    return S_OK;
}

int StringFromGUID2(const GUID& guid, LPWSTR text, int capacity) noexcept
{
    if (text == nullptr || capacity < kTextLength)
        return 0;
    wchar_t* out = text;
    *out++ = L'{';
    out = PutHex(out, guid.Data1);
    *out++ = L'-';
    out = PutHex(out, guid.Data2);
    *out++ = L'-';
    out = PutHex(out, guid.Data3);
    for (int at = 0; at < 8; ++at)
    {
        if (at == 0 || at == 2)
            *out++ = L'-';
        out = PutHex(out, guid.Data4[at]);
    }
    *out++ = L'}';
    *out = L'\0';
    return kTextLength;
}

} // namespace Quendra::Platform
