#pragma once

/// @file
/// Text for a terminal. Everything is UTF-8; a width is counted in terminal columns.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Makes foreign text safe for a terminal: control characters and those that reorder a line are written as escapes such as `\n`, `\x1B` and
/// `\u202E`.
[[nodiscard]] std::string Printable(std::string_view text);
[[nodiscard]] std::string Printable(std::wstring_view text);

/// How many columns a printable text takes.
[[nodiscard]] std::size_t DisplayWidth(std::string_view text);

/// Cuts a printable text that is too wide, with an ellipsis.
[[nodiscard]] std::string FitTo(std::string_view text, std::size_t columns);

/// `17 B`, `1.5 KiB`, `3.0 GiB`
[[nodiscard]] std::string BinarySize(std::uint64_t bytes);

/// `0:07`, `12:30`, `1:02:03`
[[nodiscard]] std::string DurationText(std::uint64_t seconds);

/// Rows in aligned columns, two spaces apart.
class Table
{
public:
    enum class Align
    {
        Left,
        Right
    };

    struct Column
    {
        std::string title;
        Align align = Align::Left;
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// @param cells  one a column; printable.
    void Add(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }

    /// The titles and the rows, each line ended.
    [[nodiscard]] std::string Render() const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};
