#include "ItemForm.h"

#include <charconv>
#include <limits>

namespace ApplianceParts
{

std::optional<ItemTime> ReadTime(const std::string& text)
{
    if (text == "INVALID")
        return std::nullopt;
    const auto time = ParseTime(text);
    if (!time)
        throw ApiError(400, ErrorId::Malformed, "a time is malformed");
    return time;
}

std::uint64_t ReadNumber(const std::string& text, std::string_view what)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || number > std::numeric_limits<std::int64_t>::max())
        throw ApiError(400, ErrorId::Malformed, std::string(what) + " is no number in range");
    return number;
}

std::optional<std::uint32_t> ReadAttributes(const std::string& text)
{
    constexpr std::uint64_t kUnknown = 0xFFFFFFFF;
    const auto number = ReadNumber(text, "attributes");
    if (number > kUnknown)
        throw ApiError(400, ErrorId::Malformed, "attributes has more than 32 bits");
    return number == kUnknown ? std::nullopt : std::optional(static_cast<std::uint32_t>(number));
}

ItemChanges ReadChanges(const Fields& fields)
{
    ItemChanges changes;
    if (const auto created = Find(fields, "creation_time"))
        changes.created = ReadTime(*created);
    if (const auto modified = Find(fields, "modification_time"))
        changes.modified = ReadTime(*modified);
    if (const auto attributes = Find(fields, "attributes"))
        changes.attributes = ReadAttributes(*attributes);
    return changes;
}

} // namespace ApplianceParts
