#include "Item.h"

#include "StateFolder.h"
#include "System.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

namespace ApplianceParts
{

namespace
{

using namespace std::chrono;

constexpr std::size_t kFractionDigits = 7;
constexpr ItemTime kFirstFileTime = sys_days(year(1970) / January / 1);
constexpr ItemTime kLastFileTime = sys_days(year(2400) / January / 1);

// Converts between the file clock and the system clock: standard libraries provide different functions for it. Templates, so that only the
// available one is compiled.
template <typename FileTime> auto ToSystem(FileTime time)
{
    if constexpr (requires { FileTime::clock::to_sys(time); })
        return FileTime::clock::to_sys(time);
    else
        return clock_cast<system_clock>(time);
}

template <typename FileTime, typename SystemTime> FileTime FromSystem(SystemTime time)
{
    if constexpr (requires { FileTime::clock::from_sys(time); })
        return time_point_cast<typename FileTime::duration>(FileTime::clock::from_sys(time));
    else
        return time_point_cast<typename FileTime::duration>(clock_cast<typename FileTime::clock>(time));
}

} // namespace

std::filesystem::path ToFilePath(std::string_view name)
{
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

std::string ToUtf8(const std::filesystem::path& path)
{
    const auto text = path.u8string();
    return std::string(text.begin(), text.end());
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
    {
        const auto name = text.substr(0, text.find('/'));
        text.remove_prefix(std::min(text.size(), name.size() + 1));
        if (!name.empty())
            path = path.Child(name);
    }
    return path;
}

std::string ItemPath::Text() const
{
    std::string text;
    for (const auto& name : m_names)
        text.append("/").append(name);
    return text.empty() ? "/" : text;
}

ItemPath ItemPath::Parent() const
{
    ItemPath parent = *this;
    if (!IsRoot())
        parent.m_names.pop_back();
    return parent;
}

ItemPath ItemPath::Child(std::string_view name) const
{
    if (!IsName(name, IsRoot()))
        throw ApiError(400, ErrorId::NameNotAllowed, "the name is not allowed");
    ItemPath child = *this;
    child.m_names.emplace_back(name);
    return child;
}

bool ItemPath::IsBelow(const ItemPath& folder) const
{
    return m_names.size() > folder.m_names.size() && std::equal(folder.m_names.begin(), folder.m_names.end(), m_names.begin());
}

bool ItemPath::IsName(std::string_view name, bool isInRoot)
{
    if (name.empty() || name == "." || name == ".." || !IsValidUtf8(name))
        return false;
    const std::u8string units(name.begin(), name.end());
    // File systems that ignore case do so for at least these letters.
    const auto lower = LowerAscii(name);
    return System::IsFileName(units) && !(isInRoot && std::u8string(lower.begin(), lower.end()) == StateFolder::kName);
}

ItemTime Now()
{
    return time_point_cast<ItemTime::duration>(system_clock::now());
}

std::string FormatTime(ItemTime time)
{
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%07dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text.data();
}

std::optional<ItemTime> ParseTime(const std::string& text)
{
    int numbers[6]{};
    int end = 0;
    const int found = std::sscanf(text.c_str(), "%5d-%2d-%2dT%2d:%2d:%2d%n", &numbers[0], &numbers[1], &numbers[2], &numbers[3],
                                  &numbers[4], &numbers[5], &end);
    const auto [yearNumber, monthNumber, dayNumber, hour, minute, second] = numbers;
    std::string fraction = text.substr(static_cast<std::size_t>(end));
    if (found != 6 || fraction.empty() || fraction.back() != 'Z' || (fraction.size() > 1 && fraction.front() != '.'))
        return std::nullopt;
    fraction = fraction.size() > 1 ? fraction.substr(1, fraction.size() - 2) : "";
    if (fraction.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    fraction.resize(kFractionDigits, '0');
    const year_month_day date(year(yearNumber), month(static_cast<unsigned>(monthNumber)),
                              std::chrono::day(static_cast<unsigned>(dayNumber)));
    const bool isTime = hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
    if (!date.ok() || !isTime || yearNumber < 1601 || yearNumber > 30827)
        return std::nullopt;
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + ItemTime::duration(std::stoi(fraction));
}

ItemTime FromFileTime(std::filesystem::file_time_type time)
{
    return floor<ItemTime::duration>(ToSystem(time));
}

std::optional<std::filesystem::file_time_type> ToFileTime(ItemTime time)
{
    if (time < kFirstFileTime || time > kLastFileTime)
        return std::nullopt;
    return FromSystem<std::filesystem::file_time_type>(time);
}

std::uint64_t ReadNumber(const std::string& text, const std::string& name)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > std::numeric_limits<std::int64_t>::max())
        throw Malformed(name + " is no number in range");
    return number;
}

std::optional<ItemTime> ReadTime(const std::optional<std::string>& text)
{
    if (!text || text == "INVALID")
        return std::nullopt;
    const auto time = ParseTime(*text);
    if (!time)
        throw Malformed("a time is malformed");
    return time;
}

ItemChanges ReadChanges(const std::optional<std::string>& created, const std::optional<std::string>& modified,
                        const std::optional<std::string>& attributes)
{
    constexpr std::uint64_t kUnknown = 0xFFFFFFFF;
    const auto bits = attributes ? ReadNumber(*attributes, "attributes") : kUnknown;
    if (bits > kUnknown)
        throw Malformed("attributes has more than 32 bits");
    return {ReadTime(created), ReadTime(modified), bits == kUnknown ? std::nullopt : std::optional(static_cast<std::uint32_t>(bits))};
}

ItemChanges ReadChanges(const Fields& fields)
{
    return ReadChanges(Find(fields, "creation_time"), Find(fields, "modification_time"), Find(fields, "attributes"));
}

Json::Value ToJson(const Item& item)
{
    return JsonObject({{"name", item.name},
                       {"orca_path", item.path},
                       {"directory", item.isFolder},
                       {"size", Json::UInt64(item.size)},
                       {"creation_time", FormatTime(item.created)},
                       {"modification_time", FormatTime(item.modified)},
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
