#include "EventLine.h"

#include "TextConversion.h"
#include "UtcText.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <string_view>

namespace Eventing
{
namespace
{

constexpr unsigned kDeepestIndent = 32;

const char* KindOf(const EventDescriptor& descriptor)
{
    if (descriptor.id == kFunctionEntryId)
        return "ENTER";
    if (descriptor.id == kFunctionExitId)
        return "EXIT";
    static constexpr std::array<const char*, 5> kLevels{"ALL", "CRIT", "ERROR", "WARN", "INFO"};
    return descriptor.level < kLevels.size() ? kLevels[descriptor.level] : "DEBUG";
}

template <typename... Arguments> std::string Print(const char* format, Arguments... arguments)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), format, arguments...);
    return text.data();
}

// Control characters, line and paragraph separators, and bidirectional formatting characters.
bool NeedsEscape(wchar_t character)
{
    struct Range
    {
        unsigned first;
        unsigned last;
    };
    static constexpr std::array<Range, 7> kRanges{
        {{0x00, 0x1F}, {0x7F, 0x9F}, {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF}}};
    const auto value = static_cast<unsigned>(character);
    return std::any_of(kRanges.begin(), kRanges.end(), [value](Range range) { return value >= range.first && value <= range.last; });
}

std::string Escape(wchar_t character)
{
    switch (character)
    {
    case L'\n':
        return "\\n";
    case L'\r':
        return "\\r";
    case L'\t':
        return "\\t";
    default:
        const auto value = static_cast<unsigned>(character);
        return Print(value <= 0xFF ? "\\x%02X" : "\\u%04X", value);
    }
}

} // namespace

std::string EscapeLine(std::string_view text)
{
    const std::wstring wide = ToWide(text);
    std::string result;
    for (auto position = wide.begin(); position != wide.end();)
    {
        const auto escaped = std::find_if(position, wide.end(), NeedsEscape);
        result += ToNarrow(std::wstring_view(position, escaped));
        position = escaped;
        for (; position != wide.end() && NeedsEscape(*position); ++position)
            result += Escape(*position);
    }
    return result;
}

std::string FormatEventLine(const Event& event, unsigned depth)
{
    std::string place = event.sourceUnit;
    place.append(":").append(std::to_string(event.line));
    place.resize(std::max<std::size_t>(place.size(), 20), ' ');

    std::string line = FormatUtc(std::chrono::sys_time<std::chrono::milliseconds>(std::chrono::milliseconds(event.unixMilliseconds)));
    line += Print(" %7u %-5s ", static_cast<unsigned>(event.threadId), KindOf(*event.descriptor));
    line.append(place).append(" ").append(std::size_t{2} * std::min(depth, kDeepestIndent), ' ').append(event.function);
    if (event.message != nullptr)
        line.append(": ").append(event.message);
    return EscapeLine(line);
}

} // namespace Eventing
