#pragma once

/// @file
/// Values of items in forms, headers and queries.

#include "Exchange.h"
#include "ItemStore.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ApplianceParts
{

/// A time as clients send it; nothing for "INVALID", which is what they send for a time that they do not know.
/// @throws ApiError where it is neither.
[[nodiscard]] std::optional<ItemTime> ReadTime(const std::string& text);

/// Attribute bits in decimal; nothing for 4294967295, which stands for bits that the client does not know.
/// @throws ApiError where it is no such number.
[[nodiscard]] std::optional<std::uint32_t> ReadAttributes(const std::string& text);

/// A number in decimal, without a sign.
/// @throws ApiError where it is none, or too large for a signed number of 64 bits.
[[nodiscard]] std::uint64_t ReadNumber(const std::string& text, std::string_view what);

/// "creation_time", "modification_time" and "attributes".
[[nodiscard]] ItemChanges ReadChanges(const Fields& fields);

} // namespace ApplianceParts
