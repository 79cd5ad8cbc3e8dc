#include "TimeText.h"

#include "System.h"
#include "TextConversion.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

namespace
{

using Days = std::chrono::sys_days;
using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

constexpr std::size_t kSecondsEnd = std::string_view("0000-00-00T00:00:00").size();

// Whether a text is `2026-03-01T12:30:15`, without its seconds or without its time of day; a space may stand for the T.
bool HasForm(std::string_view text)
{
    constexpr std::string_view kForm = "0000-00-00T00:00:00";
    const auto matches = [](char character, char form) {
        const bool isDigit = character >= '0' && character <= '9';
        return form == '0' ? isDigit : character == form || (form == 'T' && character == ' ');
    };
    return (text.size() == 10 || text.size() == 16 || text.size() == kForm.size()) &&
           std::equal(text.begin(), text.end(), kForm.begin(), matches);
}

// The ticks of the digits after a decimal point; nothing for anything else.
std::optional<std::int64_t> TicksOf(std::string_view fraction)
{
    if (fraction.empty() || fraction.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    std::string digits(fraction);
    digits.resize(7, '0');
    return std::stoll(digits);
}

// The parts of a time; those that a text lacks are 0.
std::optional<std::tm> PartsOf(std::string_view text)
{
    const auto number = [text](std::size_t first, std::size_t digits) {
        int value = 0;
        if (first < text.size())
            std::from_chars(&text[first], &text[first] + digits, value);
        return value;
    };
    if (!HasForm(text))
        return std::nullopt;
    std::tm parts{};
    parts.tm_year = number(0, 4) - 1900;
    parts.tm_mon = number(5, 2) - 1;
    parts.tm_mday = number(8, 2);
    parts.tm_hour = number(11, 2);
    parts.tm_min = number(14, 2);
    parts.tm_sec = number(17, 2);
    return parts;
}

// Nothing for an impossible date or time of day, or a local time that cannot be converted.
std::optional<std::int64_t> UnixSeconds(std::tm parts, bool isUtc)
{
    const std::chrono::year_month_day date{std::chrono::year{parts.tm_year + 1900},
                                           std::chrono::month(static_cast<unsigned>(parts.tm_mon + 1)),
                                           std::chrono::day(static_cast<unsigned>(parts.tm_mday))};
    if (!date.ok() || parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 59)
        return std::nullopt;
    if (isUtc)
        return std::chrono::seconds(Days{date}.time_since_epoch()).count() + parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec;
    parts.tm_isdst = -1;
    parts.tm_wday = -1; // stays -1 if the time cannot be converted: the result -1 alone is also a valid time
    const std::time_t seconds = std::mktime(&parts);
    return seconds == -1 && parts.tm_wday == -1 ? std::nullopt : std::optional<std::int64_t>(seconds);
}

} // namespace

std::optional<CAttributeTime> ParseTime(std::string_view text)
{
    if (text == "now")
    {
        const auto now = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
        return CAttributeTime(now.time_since_epoch().count() + kUnixEpochSeconds * kTicksPerSecond);
    }

    const bool isUtc = text.ends_with('Z');
    if (isUtc)
        text.remove_suffix(1);
    const std::size_t point = text.find('.');
    const auto parts = PartsOf(text.substr(0, point));
    const auto ticks = point == std::string_view::npos ? 0 : point == kSecondsEnd ? TicksOf(text.substr(point + 1)) : std::nullopt;
    if (!parts || !ticks)
        return std::nullopt;
    const auto seconds = UnixSeconds(*parts, isUtc);
    if (!seconds || *seconds < -kUnixEpochSeconds)
        return std::nullopt;
    return CAttributeTime((*seconds + kUnixEpochSeconds) * kTicksPerSecond + *ticks);
}

std::string TimeForPeople(const CAttributeTime& time)
{
    if (!time.IsSet())
        return "-";
    const std::int64_t wholeSeconds = time.GetTicks() / kTicksPerSecond;
    const auto local = System::LocalTime(wholeSeconds - kUnixEpochSeconds);
    if (!local)
        return ToNarrow(time.ToString());
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &*local)};
}
