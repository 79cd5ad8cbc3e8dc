#include "Item.h"

#include "StateFolder.h"
#include "System.h"
#include "TextComparison.h"
#include "TextConversion.h"
#include "UtcText.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <regex>

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
    ItemPath path;
    while (!text.empty())
        if (const auto name = TakeUpTo(text, "/"); !name.empty())
            path = path.Child(name);
    return path;
}

ItemPath ItemPath::Child(std::string_view name) const
{
    if (!IsName(name, IsRoot()))
        throw ApiError(400, ErrorId::NameNotAllowed, "the name is not allowed");
    return ItemPath(m_text + "/" + std::string(name));
}

bool ItemPath::IsName(std::string_view name, bool isInRoot)
{
    // File systems that ignore case do so for at least the letters of the state folder.
    return !name.empty() && name != "." && name != ".." && IsValidUtf8(name) && System::IsFileName(ToFilePath(name)) &&
           !(isInRoot && EqualIgnoringAsciiCase(name, StateFolder::kName));
}

ItemTime Now()
{
    return time_point_cast<ItemTime::duration>(system_clock::now());
}

std::optional<ItemTime> ParseTime(const std::string& text)
{
    static const std::regex form(R"((\d{1,5})-(\d\d?)-(\d\d?)T(\d\d?):(\d\d?):(\d\d?)(\.(\d{1,30}))?Z)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form))
        return std::nullopt;
    const auto number = [&parts](std::size_t index) { return std::stoi(parts[index]); };
    const year_month_day date(year(number(1)), month(static_cast<unsigned>(number(2))), day(static_cast<unsigned>(number(3))));
    if (!date.ok() || number(1) < 1601 || number(1) > 30827 || number(4) > 23 || number(5) > 59 || number(6) > 59)
        return std::nullopt;
    auto fraction = parts[8].str();
    fraction.resize(kFractionDigits, '0');
    return sys_days(date) + hours(number(4)) + minutes(number(5)) + seconds(number(6)) + ItemTime::duration(std::stoi(fraction));
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
