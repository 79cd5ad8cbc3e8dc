#include "HttpDate.h"

#include <array>
#include <cstdio>
#include <string>

std::optional<std::chrono::sys_seconds> ParseHttpDate(std::string_view text)
{
    using namespace std::chrono;
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    unsigned date = 0;
    int yearNumber = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::array<char, 4> monthName{};
    const std::string terminated(text);
    if (std::sscanf(terminated.c_str(), "%*3s, %2u %3s %4d %2d:%2d:%2d GMT", &date, monthName.data(), &yearNumber, &hour, &minute,
                    &second) != 6)
        return std::nullopt;
    const std::size_t at = kMonths.find(monthName.data());
    const year_month_day day{year(yearNumber), month(static_cast<unsigned>(at / 3 + 1)), std::chrono::day(date)};
    if (at == std::string_view::npos || at % 3 != 0 || !day.ok() || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    return sys_days(day) + hours(hour) + minutes(minute) + seconds(second);
}
