// Times: any text, compared with what the C library's own conversions make of it where those are defined.

#include "AttributeTime.h"
#include "FuzzSupport.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace
{

// The conversions of the C library are undefined beyond their types' range.
bool IsDefinedForTheCLibrary(const std::string& text)
{
    constexpr std::size_t kSafeDigits = 9;
    std::size_t run = 0;
    for (const char character : text)
    {
        run = character >= '0' && character <= '9' ? run + 1 : 0;
        if (run > kSafeDigits)
            return false;
    }
    return true;
}

std::int64_t ReadWithTheCLibrary(const std::string& text)
{
    std::string padded = text.c_str(); // up to the first NUL
    while (!padded.empty() && padded.back() == 'Z')
        padded.pop_back();
    padded += "000000";
    std::array<int, 6> fields{};
    unsigned long long fraction = 0;
    const int count = std::sscanf(padded.c_str(), "%d-%d-%dT%d:%d:%d.%7llu", &fields[0], &fields[1], &fields[2], &fields[3], &fields[4],
                                  &fields[5], &fraction);
    if (count != 7)
        return CAttributeTime::kUnset;
    const auto word = [](auto value) { return static_cast<WORD>(value); };
    const SYSTEMTIME calendar{word(fields[0]), word(fields[1]),       0, word(fields[2]), word(fields[3]), word(fields[4]),
                              word(fields[5]), word(fraction / 10000)};
    FILETIME time{};
    static_cast<void>(SystemTimeToFileTime(&calendar, &time));
    const std::uint64_t ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
    return static_cast<std::int64_t>(ticks - calendar.wMilliseconds * std::uint64_t{10000} + fraction);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ListenToEverything();
    const std::string text = Bytes(data, size);
    const CAttributeTime time(text);
    Require(!time.ToString().empty());
    if (IsDefinedForTheCLibrary(text))
        Require(time.GetTicks() == ReadWithTheCLibrary(text));
    return 0;
}
