#pragma once

/// @file
/// Times in UTC as text. Everything is inline, because programs that do not link the library use it too.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

/// Writes a time as `2015-03-02T10:20:30.123Z`.
/// @tparam Duration  its unit sets the digits of the fraction: none for seconds, three for milliseconds.
/// @param time       since 1970.
/// @return ASCII.
template <typename Duration> [[nodiscard]] std::string FormatUtc(std::chrono::sys_time<Duration> time)
{
    using namespace std::chrono;
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    std::string result = text.data();
    if constexpr (constexpr std::size_t digits = decltype(clock)::fractional_width; digits > 0)
    {
        const std::string fraction = std::to_string(clock.subseconds().count());
        result.append(".").append(digits - fraction.size(), '0').append(fraction);
    }
    return result + "Z";
}

/// Formats a time for an HTTP header: `Sun, 06 Nov 1994 08:49:37 GMT`.
[[nodiscard]] inline std::string FormatHttpDate(std::chrono::sys_seconds time)
{
    using namespace std::chrono;
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    constexpr std::string_view kDays = "SunMonTueWedThuFriSat";
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.3s, %02u %.3s %04d %02d:%02d:%02d GMT", &kDays[std::size_t{3} * weekday{day}.c_encoding()],
                  static_cast<unsigned>(date.day()), &kMonths[std::size_t{3} * (static_cast<unsigned>(date.month()) - 1)],
                  static_cast<int>(date.year()), static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}
