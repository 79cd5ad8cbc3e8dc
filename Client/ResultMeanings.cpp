#include "ResultMeanings.h"

#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace
{

constexpr std::uint32_t kHResultOfPlatform = 0x80070000;

static_assert(std::ranges::is_sorted(Result::kMeanings, {}, &Result::Meaning::code));

template <std::size_t Size> std::string_view Find(const Result::Meaning (&table)[Size], ResultCode code)
{
    const auto found = std::ranges::find(table, code, &Result::Meaning::code);
    return found != std::end(table) ? found->text : std::string_view();
}

std::string StatusMeaning(std::uint32_t status)
{
    std::string text = "the server refused: HTTP " + std::to_string(status);
    if (const auto phrase = Find(Result::kHttpStatuses, status); !phrase.empty())
        text.append(", ").append(phrase);
    return text;
}

std::string RefusalMeaning(std::uint32_t error)
{
    if (const auto text = Find(Result::kServerErrors, error); !text.empty())
        return std::string(text);
    if (error >= 100 && error <= 599)
        return StatusMeaning(error);
    return "the server refused: its error " + std::to_string(error) + "; --trace - shows its reply";
}

} // namespace

std::string CodeText(ResultCode code)
{
    if (code < 0x80000000)
        return std::to_string(code);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", code);
    return text.data();
}

std::string MeaningOf(ResultCode code)
{
    if (const auto text = Find(Result::kMeanings, code); !text.empty())
        return std::string(text);
    if ((code & 0xFFFF0000) == kHResultOfPlatform)
        return MeaningOf(code & 0xFFFF);
    if (code >= Result::RefusalBase && code <= Result::LastRefusal)
        return RefusalMeaning(code - Result::RefusalBase);
    // Some operations pass a refusal's bare HTTP status.
    if (code >= 100 && code <= 599)
        return StatusMeaning(code);
    if (code >= 12001 && code <= 12192)
        return "an error of the HTTP transport";
    return "an error of the platform";
}
