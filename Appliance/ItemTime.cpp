#include "ItemTime.h"

#include <array>
#include <charconv>

namespace ApplianceParts
{

namespace
{

using namespace std::chrono;

constexpr std::size_t kFractionDigits = 7;
constexpr ItemTime kFirstFileTime = sys_days(year(1970) / January / 1);
constexpr ItemTime kLastFileTime = sys_days(year(2400) / January / 1);

std::string Padded(std::int64_t value, std::size_t digits)
{
    auto text = std::to_string(value);
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

// Takes a number of at least and at most so many digits, and the character behind it.
std::optional<int> TakeNumber(std::string_view& text, std::size_t least, std::size_t most, char behind)
{
    const auto size = std::min(text.size(), text.find_first_not_of("0123456789"));
    if (size < least || size > most || text.substr(size, 1) != std::string_view(&behind, 1))
        return std::nullopt;
    int value = 0;
    std::from_chars(text.data(), text.data() + size, value);
    text.remove_prefix(size + 1);
    return value;
}

// Between the clock of files and the system's: standard libraries have the one way or the other. Templates, so that only the one
// that is there is looked at.
template <typename FileTime> auto ToSystem(FileTime time)
{
    if constexpr (requires { FileTime::clock::to_sys(time); })
        return FileTime::clock::to_sys(time);
    else
        return clock_cast<system_clock>(time);
}

template <typename FileTime, typename SystemTime> FileTime FromSystem(SystemTime time)
{
    if constexpr (requires { FileTime::clock::from_sys(time); })
        return time_point_cast<typename FileTime::duration>(FileTime::clock::from_sys(time));
    else
        return time_point_cast<typename FileTime::duration>(clock_cast<typename FileTime::clock>(time));
}

} // namespace

ItemTime Now()
{
    return time_point_cast<ItemTime::duration>(system_clock::now());
}

std::string FormatTime(ItemTime time)
{
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    return Padded(static_cast<int>(date.year()), 4) + "-" + Padded(static_cast<unsigned>(date.month()), 2) + "-" +
           Padded(static_cast<unsigned>(date.day()), 2) + "T" + Padded(clock.hours().count(), 2) + ":" +
           Padded(clock.minutes().count(), 2) + ":" + Padded(clock.seconds().count(), 2) + "." +
           Padded(clock.subseconds().count(), kFractionDigits) + "Z";
}

std::optional<ItemTime> ParseTime(std::string_view text)
{
    const auto yearNumber = TakeNumber(text, 4, 5, '-');
    const auto monthNumber = yearNumber ? TakeNumber(text, 2, 2, '-') : std::nullopt;
    const auto dayNumber = monthNumber ? TakeNumber(text, 2, 2, 'T') : std::nullopt;
    const auto hour = dayNumber ? TakeNumber(text, 2, 2, ':') : std::nullopt;
    const auto minute = hour ? TakeNumber(text, 2, 2, ':') : std::nullopt;
    const bool hasFraction = text.find('.') != std::string_view::npos;
    const auto second = minute ? TakeNumber(text, 2, 2, hasFraction ? '.' : 'Z') : std::nullopt;
    if (!second || *hour > 23 || *minute > 59 || *second > 59 || *yearNumber < 1601 || *yearNumber > 30827)
        return std::nullopt;
    std::int64_t fraction = 0;
    if (hasFraction)
    {
        const auto digits = std::min(text.size(), text.find_first_not_of("0123456789"));
        if (text.substr(digits) != "Z")
            return std::nullopt;
        auto padded = std::string(text.substr(0, std::min(digits, kFractionDigits)));
        padded.resize(kFractionDigits, '0');
        std::from_chars(padded.data(), padded.data() + padded.size(), fraction);
    }
    const year_month_day date(year(*yearNumber), month(static_cast<unsigned>(*monthNumber)),
                              std::chrono::day(static_cast<unsigned>(*dayNumber)));
    if (!date.ok())
        return std::nullopt;
    return sys_days(date) + hours(*hour) + minutes(*minute) + seconds(*second) + ItemTime::duration(fraction);
}

ItemTime FromFileTime(std::filesystem::file_time_type time)
{
    return floor<ItemTime::duration>(ToSystem(time));
}

std::optional<std::filesystem::file_time_type> ToFileTime(ItemTime time)
{
    if (time < kFirstFileTime || time > kLastFileTime)
        return std::nullopt;
    return FromSystem<std::filesystem::file_time_type>(time);
}

} // namespace ApplianceParts
