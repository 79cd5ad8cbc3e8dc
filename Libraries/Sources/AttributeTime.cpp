#include "AttributeTime.h"

#include "Tracing.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace
{

constexpr std::uint64_t kTicksPerMillisecond = 10000;

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool IsSpace(char character)
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

// Reads a text's fields as scanf's conversions do (white space before a number, a sign), but with a defined result for numbers of
// any length.
//
// Parses as if six zeros followed the text, so that a short fraction gives the right ticks. A text without a fraction is therefore
// rejected, because the zeros extend its seconds; servers always send a fraction.
class FieldReader
{
public:
    explicit FieldReader(std::string_view text) : m_rest(text) {}

    bool Skip(char literal)
    {
        if (m_rest.empty() || m_rest.front() != literal)
            return false;
        m_rest.remove_prefix(1);
        return true;
    }

    // Like "%d", clamped, then narrowed to a calendar field.
    bool Read(WORD& field)
    {
        Number number;
        if (!ReadNumber(std::numeric_limits<std::size_t>::max(), number))
            return false;
        constexpr std::int64_t kLargest = std::numeric_limits<std::int32_t>::max();
        const std::int64_t value = std::min(static_cast<std::int64_t>(number.magnitude), kLargest + (number.isNegative ? 1 : 0));
        field = static_cast<WORD>(number.isNegative ? -value : value);
        return true;
    }

    // Like "%7llu": a sign counts towards the width, and a negative number wraps.
    bool Read(std::uint64_t& fraction, std::size_t width)
    {
        Number number;
        if (!ReadNumber(width, number))
            return false;
        fraction = number.isNegative ? 0 - number.magnitude : number.magnitude;
        return true;
    }

private:
    struct Number
    {
        void Append(char digit)
        {
            // Far above every field's range, but ten times this value does not overflow.
            constexpr std::uint64_t kEnough = 1'000'000'000'000;
            if (magnitude < kEnough)
                magnitude = magnitude * 10 + static_cast<std::uint64_t>(digit - '0');
        }

        std::uint64_t magnitude = 0;
        bool isNegative = false;
    };

    // At most `width` characters behind the white space; at least one must be a digit.
    bool ReadNumber(std::size_t width, Number& number)
    {
        while (!m_rest.empty() && IsSpace(m_rest.front()))
            m_rest.remove_prefix(1);
        const char* position = m_rest.data();
        const char* const limit = position + std::min(width, m_rest.size());
        if (position != limit && (*position == '-' || *position == '+'))
            number.isNegative = *position++ == '-';
        const char* const firstDigit = position;
        for (; position != limit && IsDigit(*position); ++position)
            number.Append(*position);
        bool hasDigits = position != firstDigit;
        width -= static_cast<std::size_t>(position - m_rest.data());
        m_rest.remove_prefix(static_cast<std::size_t>(position - m_rest.data()));
        for (; m_rest.empty() && width != 0 && m_zeros != 0; --width, --m_zeros)
        {
            number.Append('0');
            hasDigits = true;
        }
        return hasDigits;
    }

    std::string_view m_rest;
    int m_zeros = 6;
};

struct TimeFields
{
    SYSTEMTIME calendar{};
    std::uint64_t fraction = 0; // ticks within the second
};

// A fast path for the fixed-width form that servers send: a listing holds four times for each item. For any other text FieldReader is used.
bool ReadUsualForm(std::string_view text, TimeFields& fields)
{
    constexpr std::string_view kForm = "0000-00-00T00:00:00.0000000Z";
    if (text.size() != kForm.size())
        return false;
    bool isUsual =
        text[4] == '-' && text[7] == '-' && text[10] == 'T' && text[13] == ':' && text[16] == ':' && text[19] == '.' && text[27] == 'Z';
    const auto number = [text, &isUsual](std::size_t index, std::size_t digits) {
        std::uint32_t value = 0;
        for (const char digit : text.substr(index, digits))
        {
            isUsual &= IsDigit(digit);
            value = value * 10 + static_cast<std::uint32_t>(digit - '0');
        }
        return value;
    };
    const auto field = [&number](std::size_t index) { return static_cast<WORD>(number(index, 2)); };
    fields.calendar = {static_cast<WORD>(number(0, 4)), field(5), 0, field(8), field(11), field(14), field(17), 0};
    fields.fraction = number(20, 7);
    return isUsual;
}

bool ReadAnyForm(std::string_view text, TimeFields& fields)
{
    constexpr std::size_t kFractionDigits = 7;
    text = text.substr(0, text.find('\0'));
    FieldReader reader(text.substr(0, text.find_last_not_of('Z') + 1));
    SYSTEMTIME& calendar = fields.calendar;
    return reader.Read(calendar.wYear) && reader.Skip('-') && reader.Read(calendar.wMonth) && reader.Skip('-') &&
           reader.Read(calendar.wDay) && reader.Skip('T') && reader.Read(calendar.wHour) && reader.Skip(':') &&
           reader.Read(calendar.wMinute) && reader.Skip(':') && reader.Read(calendar.wSecond) && reader.Skip('.') &&
           reader.Read(fields.fraction, kFractionDigits);
}

std::wstring Padded(WORD value, std::size_t width)
{
    const std::wstring digits = std::to_wstring(value);
    return std::wstring(width - std::min(width, digits.size()), L'0') + digits;
}

} // namespace

CAttributeTime& CAttributeTime::operator=(const std::string& text)
{
    const FunctionTraceScope trace("CAttributeTime::operator =", Unit::AttributeTime);
    TimeFields fields;
    if (!ReadUsualForm(text, fields) && !ReadAnyForm(text, fields))
    {
        trace.Error("Error: [%s] is not a valid time", text);
        m_ticks = kUnset;
        return *this;
    }
    fields.calendar.wMilliseconds = static_cast<WORD>(fields.fraction / kTicksPerMillisecond);
    // An impossible date leaves the value 0: the time still counts as set, and its item is kept.
    FILETIME time{};
    static_cast<void>(SystemTimeToFileTime(&fields.calendar, &time));
    const std::uint64_t ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
    m_ticks = static_cast<std::int64_t>(ticks - fields.calendar.wMilliseconds * kTicksPerMillisecond + fields.fraction);
    return *this;
}

std::wstring CAttributeTime::ToString() const
{
    if (!IsSet())
        return L"INVALID";
    const auto ticks = static_cast<std::uint64_t>(m_ticks);
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
    SYSTEMTIME calendar{};
    static_cast<void>(FileTimeToSystemTime(&time, &calendar));
    return Padded(calendar.wYear, 4) + L'-' + Padded(calendar.wMonth, 2) + L'-' + Padded(calendar.wDay, 2) + L'T' +
           Padded(calendar.wHour, 2) + L':' + Padded(calendar.wMinute, 2) + L':' + Padded(calendar.wSecond, 2) + L'.' +
           Padded(calendar.wMilliseconds, 3) + L'Z';
}
