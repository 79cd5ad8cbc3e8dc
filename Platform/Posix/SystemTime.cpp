// FILETIME and SYSTEMTIME: the Gregorian calendar and ticks of 100 nanoseconds since 1601-01-01 UTC.

#include "Win32.h"

#include <chrono>

namespace Quendra::Platform
{

namespace
{

using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
using namespace std::chrono_literals;

constexpr std::chrono::sys_days kEpoch = std::chrono::January / 1 / 1601;

FILETIME ToFileTime(Ticks ticks)
{
    const auto count = static_cast<std::uint64_t>(ticks.count());
    return {static_cast<DWORD>(count), static_cast<DWORD>(count >> 32)};
}

} // namespace

BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* fileTime) noexcept
{
    if (time == nullptr || fileTime == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // std::chrono's month and day keep only 8 bits of their argument.
    const bool isInRange = time->wYear >= 1601 && time->wYear <= 30827 && time->wMonth <= 12 && time->wDay <= 31 && time->wHour <= 23 &&
                           time->wMinute <= 59 && time->wSecond <= 59 && time->wMilliseconds <= 999;
    const std::chrono::year_month_day date(std::chrono::year(time->wYear), std::chrono::month(time->wMonth), std::chrono::day(time->wDay));
    if (!isInRange || !date.ok())
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // From days since 1601 on, everything fits: the last of these years ends below 2^63 ticks.
    const Ticks day = std::chrono::sys_days(date) - kEpoch;
    *fileTime = ToFileTime(day + std::chrono::hours(time->wHour) + std::chrono::minutes(time->wMinute) +
                           std::chrono::seconds(time->wSecond) + std::chrono::milliseconds(time->wMilliseconds));
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* time) noexcept
{
    if (fileTime == nullptr || time == nullptr || (fileTime->dwHighDateTime & 0x80000000U) != 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const Ticks ticks(static_cast<std::int64_t>(std::uint64_t{fileTime->dwHighDateTime} << 32 | fileTime->dwLowDateTime));
    const auto days = std::chrono::floor<std::chrono::days>(ticks);
    const std::chrono::year_month_day date(kEpoch + days);
    const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::milliseconds>(ticks - days));
    *time = {static_cast<WORD>(static_cast<int>(date.year())),
             static_cast<WORD>(static_cast<unsigned>(date.month())),
             static_cast<WORD>(std::chrono::weekday(kEpoch + days).c_encoding()),
             static_cast<WORD>(static_cast<unsigned>(date.day())),
             static_cast<WORD>(clock.hours().count()),
             static_cast<WORD>(clock.minutes().count()),
             static_cast<WORD>(clock.seconds().count()),
             static_cast<WORD>(clock.subseconds().count())};
    return TRUE;
}

void GetSystemTimeAsFileTime(FILETIME* fileTime) noexcept
{
    const auto sinceUnixEpoch = std::chrono::floor<Ticks>(std::chrono::system_clock::now().time_since_epoch());
    *fileTime = ToFileTime(sinceUnixEpoch - kEpoch.time_since_epoch());
}

} // namespace Quendra::Platform
