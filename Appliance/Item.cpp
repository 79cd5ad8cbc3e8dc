#include "Item.h"

#include "System.h"
#include "TextConversion.h"
#include "UtcText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>

namespace ApplianceParts
{

namespace
{

using namespace std::chrono;

constexpr std::size_t kFractionDigits = 7;

std::optional<ItemTime> ReadTime(const std::optional<std::string>& text)
{
    if (!text || text == "INVALID")
        return std::nullopt;
    const auto time = ParseTime(*text);
    if (!time)
        throw Malformed("a time is malformed");
    return time;
}

} // namespace

std::filesystem::path ToFilePath(std::string_view name)
{
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

ItemPath ItemPath::FromUrl(std::string_view encoded)
{
    const auto text = PercentDecode(encoded);
    if (!text)
        throw Malformed("the path is not percent-encoded");
    return FromText(*text);
}

ItemPath ItemPath::FromText(std::string_view text)
{
    // Longer than any file system allows. Each name costs a copy of the path before it.
    constexpr std::size_t kLongestPath = 32 * 1024;
    if (text.size() > kLongestPath)
        throw ApiError(400, ErrorId::NameNotAllowed, "the path is too long");
    ItemPath path;
    while (!text.empty())
        if (const auto name = TakeUpTo(text, "/"); !name.empty())
            path = path.Child(name);
    return path;
}

ItemPath ItemPath::Child(std::string_view name) const
{
    if (!IsName(name))
        throw ApiError(400, ErrorId::NameNotAllowed, "the name is not allowed");
    return ItemPath(m_text + "/" + std::string(name));
}

bool ItemPath::IsName(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && IsValidUtf8(name) && System::IsFileName(ToFilePath(name));
}

ItemTime Now()
{
    return time_point_cast<ItemTime::duration>(system_clock::now());
}

std::optional<ItemTime> ParseTime(const std::string& text)
{
    std::string_view rest = text;
    // Takes what stands before a number, and 1 to `most` digits.
    const auto take = [&rest](std::string_view before, std::size_t most) {
        const auto first = rest.starts_with(before) ? before.size() : rest.size();
        const auto end = std::min({rest.find_first_not_of("0123456789", first), rest.size(), first + most});
        const std::string digits(rest.substr(first, end - first));
        rest.remove_prefix(digits.empty() ? 0 : end);
        return digits;
    };
    constexpr std::array<std::string_view, 6> kBefore = {"", "-", "-", "T", ":", ":"};
    std::array<int, 6> numbers = {};
    for (std::size_t i = 0; i < numbers.size(); ++i)
    {
        const std::string digits = take(kBefore.at(i), i == 0 ? 5 : 2);
        if (digits.empty())
            return std::nullopt;
        numbers.at(i) = std::stoi(digits);
    }
    std::string fraction = take(".", 30);
    const auto [inYear, inMonth, inDay, hour, minute, second] = numbers;
    const year_month_day date{year(inYear), month(static_cast<unsigned>(inMonth)), day(static_cast<unsigned>(inDay))};
    if (rest != "Z" || !date.ok() || inYear < 1601 || inYear > 30827 || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    fraction.resize(kFractionDigits, '0');
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + ItemTime::duration(std::stoi(fraction));
}

std::uint64_t ReadNumber(const std::string& text, const std::string& name)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > std::numeric_limits<std::int64_t>::max())
        throw Malformed(name + " is no number in range");
    return number;
}

ItemChanges ReadChanges(const Fields& fields)
{
    constexpr std::uint64_t kUnknown = 0xFFFFFFFF;
    const auto bits = ReadNumber(Find(fields, "attributes").value_or(std::to_string(kUnknown)), "attributes");
    if (bits > kUnknown)
        throw Malformed("attributes has more than 32 bits");
    return {ReadTime(Find(fields, "creation_time")), ReadTime(Find(fields, "modification_time")),
            bits == kUnknown ? std::nullopt : std::optional(static_cast<std::uint32_t>(bits))};
}

Json::Value ToJson(const Item& item)
{
    return JsonObject({{"name", item.path.substr(item.path.rfind('/') + 1)},
                       {"orca_path", item.path},
                       {"directory", item.isFolder},
                       {"size", Json::UInt64(item.size)},
                       {"creation_time", FormatUtc(item.created)},
                       {"modification_time", FormatUtc(item.modified)},
                       {"attributes", item.attributes},
                       {"revision", item.revision},
                       {"permissions", "WRITE"},
                       {"folder_permissions", "WRITE"}});
}

Reply ItemReply(const Item& item)
{
    return JsonReply({{"document_info", ToJson(item)}});
}

} // namespace ApplianceParts
