#include "TimeText.h"

#include "System.h"
#include "TextConversion.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace
{

using Days = std::chrono::sys_days;
using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

constexpr Days kEpoch = std::chrono::year{1601} / 1 / 1;
constexpr std::int64_t kEpochToUnixSeconds = std::chrono::seconds(Days{std::chrono::year{1970} / 1 / 1} - kEpoch).count();
constexpr std::int64_t kTicksPerSecond = 10'000'000;

// Takes the parts of a time from the beginning of a text.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : m_rest(text) {}

    [[nodiscard]] bool AtEnd() const { return m_rest.empty(); }

    bool Take(char character)
    {
        if (!m_rest.starts_with(character))
            return false;
        m_rest.remove_prefix(1);
        return true;
    }

    // A number of exactly that many digits.
    std::optional<int> Number(std::size_t digits)
    {
        if (CountDigits() < digits)
            return std::nullopt;
        int value = 0;
        std::from_chars(m_rest.data(), m_rest.data() + digits, value);
        m_rest.remove_prefix(digits);
        return value;
    }

    // The digits after a decimal point, as ticks.
    std::optional<std::int64_t> Fraction()
    {
        const std::size_t digits = CountDigits();
        if (digits == 0)
            return std::nullopt;
        std::int64_t ticks = 0;
        for (std::size_t index = 0; index < 7; ++index)
            ticks = ticks * 10 + (index < digits ? m_rest[index] - '0' : 0);
        m_rest.remove_prefix(digits);
        return ticks;
    }

private:
    [[nodiscard]] std::size_t CountDigits() const
    {
        const std::size_t end = m_rest.find_first_not_of("0123456789");
        return end == std::string_view::npos ? m_rest.size() : end;
    }

    std::string_view m_rest;
};

struct TimeOfDay
{
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::int64_t ticks = 0;
};

std::optional<std::chrono::year_month_day> ScanDate(Scanner& scanner)
{
    const auto year = scanner.Number(4);
    if (!year || !scanner.Take('-'))
        return std::nullopt;
    const auto month = scanner.Number(2);
    if (!month || !scanner.Take('-'))
        return std::nullopt;
    const auto day = scanner.Number(2);
    if (!day)
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year{*year}, std::chrono::month{static_cast<unsigned>(*month)},
                                           std::chrono::day{static_cast<unsigned>(*day)}};
    return date.ok() && *year >= 1601 ? std::optional(date) : std::nullopt;
}

std::optional<TimeOfDay> ScanTimeOfDay(Scanner& scanner)
{
    const auto hour = scanner.Number(2);
    if (!hour || *hour > 23 || !scanner.Take(':'))
        return std::nullopt;
    const auto minute = scanner.Number(2);
    if (!minute || *minute > 59)
        return std::nullopt;
    TimeOfDay time{*hour, *minute, 0, 0};
    if (!scanner.Take(':'))
        return time;
    const auto second = scanner.Number(2);
    if (!second || *second > 59)
        return std::nullopt;
    time.second = *second;
    if (!scanner.Take('.'))
        return time;
    const auto ticks = scanner.Fraction();
    if (!ticks)
        return std::nullopt;
    time.ticks = *ticks;
    return time;
}

std::int64_t UtcSeconds(const std::chrono::year_month_day& date, const TimeOfDay& time)
{
    const auto days = Days{date} - Days{std::chrono::year{1970} / 1 / 1};
    return std::chrono::seconds(days).count() + time.hour * 3600 + time.minute * 60 + time.second;
}

std::optional<std::int64_t> LocalSeconds(const std::chrono::year_month_day& date, const TimeOfDay& time)
{
    std::tm local{};
    local.tm_year = static_cast<int>(date.year()) - 1900;
    local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    local.tm_hour = time.hour;
    local.tm_min = time.minute;
    local.tm_sec = time.second;
    local.tm_isdst = -1;
    local.tm_wday = -1; // stays -1 if the time cannot be converted: the result -1 alone is also a valid time
    const std::time_t seconds = std::mktime(&local);
    if (seconds == -1 && local.tm_wday == -1)
        return std::nullopt;
    return static_cast<std::int64_t>(seconds);
}

} // namespace

std::optional<CAttributeTime> ParseTime(std::string_view text)
{
    if (text == "now")
    {
        const auto now = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
        return CAttributeTime(now.time_since_epoch().count() + kEpochToUnixSeconds * kTicksPerSecond);
    }

    Scanner scanner(text);
    const auto date = ScanDate(scanner);
    if (!date)
        return std::nullopt;
    std::optional<TimeOfDay> time = TimeOfDay{};
    if (scanner.Take('T') || scanner.Take(' '))
        time = ScanTimeOfDay(scanner);
    if (!time)
        return std::nullopt;
    const bool isUtc = scanner.Take('Z');
    if (!scanner.AtEnd())
        return std::nullopt;

    const auto seconds = isUtc ? UtcSeconds(*date, *time) : LocalSeconds(*date, *time);
    if (!seconds || *seconds < -kEpochToUnixSeconds)
        return std::nullopt;
    return CAttributeTime((*seconds + kEpochToUnixSeconds) * kTicksPerSecond + time->ticks);
}

std::string TimeForPeople(const CAttributeTime& time)
{
    if (!time.IsSet())
        return "-";
    const std::int64_t wholeSeconds = time.GetTicks() / kTicksPerSecond;
    const auto local = System::LocalTime(wholeSeconds - kEpochToUnixSeconds);
    if (!local)
        return ToNarrow(time.ToString());
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d", local->tm_year + 1900, local->tm_mon + 1, local->tm_mday,
                  local->tm_hour, local->tm_min);
    return text.data();
}
