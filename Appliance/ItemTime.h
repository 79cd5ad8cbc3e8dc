#pragma once

/// @file
/// Points in time as items have them: in steps of 100 ns, as text "2015-03-02T10:20:30.1234567Z".

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ratio>
#include <string>
#include <string_view>

namespace ApplianceParts
{

using ItemTime = std::chrono::sys_time<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>;

[[nodiscard]] ItemTime Now();

/// Always with seven digits of fraction: clients refuse a time without a fraction.
[[nodiscard]] std::string FormatTime(ItemTime time);

/// Reads a time with or without a fraction; nothing where the text is none between the years 1601 and 30827.
[[nodiscard]] std::optional<ItemTime> ParseTime(std::string_view text);

[[nodiscard]] ItemTime FromFileTime(std::filesystem::file_time_type time);

/// Nothing where file systems cannot be relied on to hold the time.
[[nodiscard]] std::optional<std::filesystem::file_time_type> ToFileTime(ItemTime time);

} // namespace ApplianceParts
