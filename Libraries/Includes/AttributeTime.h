#pragma once

/// @file
/// The timestamp of an item's attributes.

#include <cstdint>
#include <string>

/// A point in time in 100-nanosecond ticks since 1601-01-01 00:00:00 UTC, like a FILETIME, or unset.
class CAttributeTime
{
public:
    /// The value of an unset time.
    static constexpr std::int64_t kUnset = 0x7FFFFFFFFFFFFFFF;

    CAttributeTime() = default;
    /// @param ticks  100-nanosecond ticks since 1601-01-01 UTC, or `kUnset`.
    explicit CAttributeTime(std::int64_t ticks) : m_ticks(ticks) {}

    /// Parses a server's text; see `operator=`.
    /// @param text  ASCII.
    explicit CAttributeTime(const std::string& text) { *this = text; }

    /// Parses a server's text, such as `2015-03-02T10:20:30.1234567Z`: UTC, with a fraction, of which seven digits are used. A text of
    /// another form is traced and unsets the time; an impossible date, or one outside the years 1601 to 30827, becomes 1601-01-01 plus its
    /// ticks below the millisecond. Never fails.
    /// @param text  ASCII.
    /// @return this time.
    CAttributeTime& operator=(const std::string& text);

    /// @return 100-nanosecond ticks since 1601-01-01 UTC, or `kUnset`.
    [[nodiscard]] std::int64_t GetTicks() const { return m_ticks; }
    /// @return whether the time is set.
    [[nodiscard]] bool IsSet() const { return m_ticks != kUnset; }

    /// @return the time as `2015-03-02T10:20:30.123Z`, cut to milliseconds; `INVALID` if unset.
    [[nodiscard]] std::wstring ToString() const;

    /// @return whether both are the same tick, or both unset.
    friend bool operator==(const CAttributeTime& left, const CAttributeTime& right) { return left.m_ticks == right.m_ticks; }

private:
    std::int64_t m_ticks = kUnset;
};
