#pragma once

/// @file
/// Times in the user's notation.

#include "AttributeTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// `CAttributeTime` counts ticks of 100 nanoseconds since 1601-01-01.
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
inline constexpr std::int64_t kUnixEpochSeconds = 11'644'473'600; ///< from 1601 to 1970.

/// Reads a time that the user typed: `now`, `2026-03-01`, `2026-03-01T12:30`, `2026-03-01T12:30:15.250`, with a space instead of the `T`,
/// in local time, or in UTC with a trailing `Z`.
/// @return nothing for another form, an impossible date or one outside the years 1601 to 9999.
[[nodiscard]] std::optional<CAttributeTime> ParseTime(std::string_view text);

/// `2026-03-01 12:30`, in local time; `-` for no time.
[[nodiscard]] std::string TimeForPeople(const CAttributeTime& time);
