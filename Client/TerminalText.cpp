#include "TerminalText.h"

#include "TextConversion.h"

#include "Eventing/EventLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace
{

struct Range
{
    char32_t first;
    char32_t last;
};

// Combining marks, and the second half of a UTF-16 pair, which take no column of their own.
constexpr Range kNoWidth[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD},   {0x064B, 0x065F}, {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E},
                              {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200B, 0x200D},   {0x20D0, 0x20FF}, {0x3099, 0x309A}, {0xFE00, 0xFE0F},
                              {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF}, {0xE0100, 0xE01EF}, {0xDC00, 0xDFFF}};

// East Asian wide characters and emoji. Of UTF-16 pairs, most are.
constexpr Range kWide[] = {{0x1100, 0x115F},   {0x231A, 0x231B},   {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},
                           {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},
                           {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},   {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF},
                           {0x1F900, 0x1F9FF}, {0x1FA70, 0x1FAFF}, {0x20000, 0x2FFFD}, {0x30000, 0x3FFFD}, {0xD800, 0xDBFF}};

template <std::size_t Size> bool IsIn(const Range (&ranges)[Size], char32_t character)
{
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [character](const Range& range) { return character >= range.first && character <= range.last; });
}

std::size_t WidthOf(wchar_t character)
{
    const auto code = static_cast<char32_t>(character);
    return IsIn(kNoWidth, code) ? 0 : IsIn(kWide, code) ? 2 : 1;
}

std::string Padded(const std::string& cell, std::size_t width, Table::Align align)
{
    const std::string padding(width - std::min(width, DisplayWidth(cell)), ' ');
    return align == Table::Align::Left ? cell + padding : padding + cell;
}

} // namespace

std::string Printable(std::string_view text)
{
    return Eventing::EscapeLine(text);
}

std::string Printable(std::wstring_view text)
{
    return Printable(ToNarrow(text));
}

std::size_t DisplayWidth(std::string_view text)
{
    std::size_t width = 0;
    for (const wchar_t character : ToWide(text))
        width += WidthOf(character);
    return width;
}

std::string FitTo(std::string_view text, std::size_t columns)
{
    if (DisplayWidth(text) <= columns)
        return std::string(text);
    if (columns == 0)
        return {};
    const std::wstring wide = ToWide(text);
    std::size_t length = 0;
    for (std::size_t width = 1; (width += WidthOf(wide[length])) <= columns;) // 1 for the ellipsis
        ++length;
    return ToNarrow(std::wstring_view(wide).substr(0, length)) + "\u2026";
}

std::string BinarySize(std::uint64_t bytes)
{
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // A value that would be rounded to 1024.0 is shown in the next unit.
    while (value >= 1023.95 && unit + 1 < std::size(kUnits))
    {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
    return text.data();
}

std::string DurationText(std::uint64_t seconds)
{
    const auto twoDigits = [](std::uint64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    const std::uint64_t hours = seconds / 3600;
    const std::uint64_t minutes = seconds / 60 % 60;
    const std::string start = hours > 0 ? std::to_string(hours) + ":" + twoDigits(minutes) : std::to_string(minutes);
    return start + ":" + twoDigits(seconds % 60);
}

std::string Table::Render() const
{
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < m_columns.size(); ++column)
    {
        std::size_t width = DisplayWidth(m_columns[column].title);
        for (const auto& row : m_rows)
            width = std::max(width, DisplayWidth(row[column]));
        widths.push_back(width);
    }

    std::string text;
    const auto renderRow = [&](const auto& cellOf) {
        std::string line;
        for (std::size_t column = 0; column < m_columns.size(); ++column)
            line += (column > 0 ? "  " : "") + Padded(cellOf(column), widths[column], m_columns[column].align);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    };
    renderRow([this](std::size_t column) { return m_columns[column].title; });
    for (const auto& row : m_rows)
        renderRow([&row](std::size_t column) { return row[column]; });
    return text;
}
