#include "EventFormat.h"

#include "Utf8.h"

#include <climits>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace Eventing
{
namespace
{

enum class Length
{
    None,
    Char,
    Short,
    Long,
    LongLong,
    Max,
    Size,
    Difference
};

// What stands between a percent sign and the end of its conversion.
struct Conversion
{
    std::string_view flags;
    int width = 0;
    int precision = -1;
    bool widthIsArgument = false;
    bool precisionIsArgument = false;
    Length length = Length::None;
    char type = '\0';
    const char* end = nullptr;
};

constexpr std::string_view kSignedTypes = "di";
constexpr std::string_view kUnsignedTypes = "uoxX";
constexpr std::string_view kDoubleTypes = "fFeEgGaA";

bool Contains(std::string_view set, char character)
{
    return character != '\0' && set.find(character) != std::string_view::npos;
}

// Reads a count's digits or its '*'; false where the digits are no int.
bool ParseCount(const char*& position, int& count, bool& isArgument)
{
    if (*position == '*')
    {
        isArgument = true;
        ++position;
        return true;
    }
    std::int64_t value = 0;
    for (; *position >= '0' && *position <= '9'; ++position)
    {
        value = value * 10 + (*position - '0');
        if (value > INT_MAX)
            return false;
        count = static_cast<int>(value);
    }
    return true;
}

Length ParseLength(const char*& position)
{
    struct Modifier
    {
        std::string_view text;
        Length length;
    };
    // A longer modifier stands before the shorter one that it begins with.
    static constexpr std::array<Modifier, 10> kModifiers{{{"hh", Length::Char},
                                                          {"h", Length::Short},
                                                          {"ll", Length::LongLong},
                                                          {"l", Length::Long},
                                                          {"j", Length::Max},
                                                          {"z", Length::Size},
                                                          {"t", Length::Difference},
                                                          {"I64", Length::LongLong},
                                                          {"I32", Length::None},
                                                          {"I", Length::Size}}};
    for (const auto& [text, length] : kModifiers)
    {
        if (std::strncmp(position, text.data(), text.size()) == 0)
        {
            position += text.size();
            return length;
        }
    }
    return Length::None;
}

bool IsKnown(const Conversion& conversion)
{
    const bool plain = conversion.length == Length::None;
    switch (conversion.type)
    {
    case 's':
        return plain || conversion.length == Length::Short || conversion.length == Length::Long;
    case 'S':
    case 'c':
    case 'p':
        return plain;
    default:
        return Contains(kSignedTypes, conversion.type) || Contains(kUnsignedTypes, conversion.type) ||
               (Contains(kDoubleTypes, conversion.type) && (plain || conversion.length == Length::Long));
    }
}

// Reads a conversion from behind its percent sign, and no argument; false for one that is not known.
bool Parse(const char* position, Conversion& conversion)
{
    const char* flags = position;
    while (Contains("-+ #0", *position))
        ++position;
    conversion.flags = std::string_view(flags, static_cast<std::size_t>(position - flags));
    if (!ParseCount(position, conversion.width, conversion.widthIsArgument))
        return false;
    if (*position == '.')
    {
        ++position;
        conversion.precision = 0;
        if (!ParseCount(position, conversion.precision, conversion.precisionIsArgument))
            return false;
    }
    conversion.length = ParseLength(position);
    conversion.type = *position;
    conversion.end = position + 1;
    return IsKnown(conversion);
}

// A text's length, which need not have an end within its precision.
template <typename Character> std::size_t LengthWithin(const Character* text, int precision)
{
    std::size_t length = 0;
    while ((precision < 0 || length < static_cast<std::size_t>(precision)) && text[length] != Character{})
        ++length;
    return length;
}

class Formatter
{
public:
    explicit Formatter(std::va_list arguments) { va_copy(m_arguments, arguments); }
    ~Formatter() { va_end(m_arguments); }

    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    std::string Format(const char* format)
    {
        while (const char* percent = std::strchr(format, '%'))
        {
            m_result.append(format, percent);
            format = percent;
            Conversion conversion;
            if (percent[1] == '%')
            {
                m_result += '%';
                format += 2;
            }
            else if (Parse(percent + 1, conversion))
            {
                Append(conversion);
                format = conversion.end;
            }
            else
            {
                break;
            }
        }
        m_result += format;
        return std::move(m_result);
    }

private:
    void Append(Conversion& conversion)
    {
        if (conversion.widthIsArgument)
            conversion.width = va_arg(m_arguments, int);
        if (conversion.precisionIsArgument)
            conversion.precision = va_arg(m_arguments, int);

        if (conversion.type == 'S' || (conversion.type == 's' && conversion.length == Length::Long))
            AppendWideText(conversion);
        else if (conversion.type == 's')
            AppendNarrowText(conversion);
        else if (conversion.type == 'c')
            AppendPadded(conversion, std::string(1, static_cast<char>(va_arg(m_arguments, int))));
        else if (conversion.type == 'p')
            AppendPointer(conversion);
        else if (Contains(kSignedTypes, conversion.type))
            AppendNumber(conversion, "ll", NextSigned(conversion.length));
        else if (Contains(kUnsignedTypes, conversion.type))
            AppendNumber(conversion, "ll", NextUnsigned(conversion.length));
        else
            AppendNumber(conversion, "", va_arg(m_arguments, double));
    }

    void AppendNarrowText(const Conversion& conversion)
    {
        const char* text = va_arg(m_arguments, const char*);
        if (text == nullptr)
            text = "(null)";
        AppendPadded(conversion, std::string_view(text, LengthWithin(text, conversion.precision)));
    }

    void AppendWideText(const Conversion& conversion)
    {
        const wchar_t* text = va_arg(m_arguments, const wchar_t*);
        if (text == nullptr)
            text = L"(null)";
        AppendPadded(conversion, ToUtf8(std::wstring_view(text, LengthWithin(text, conversion.precision))));
    }

    void AppendPointer(const Conversion& conversion)
    {
        std::array<char, 2 + 2 * sizeof(void*) + 1> text{};
        const auto address = reinterpret_cast<std::uintptr_t>(va_arg(m_arguments, void*));
        std::snprintf(text.data(), text.size(), "0x%0*llx", static_cast<int>(2 * sizeof(void*)), static_cast<unsigned long long>(address));
        AppendPadded(conversion, text.data());
    }

    void AppendPadded(const Conversion& conversion, std::string_view text)
    {
        // A negative width comes from a '*' only and means the '-' flag.
        const bool left = conversion.width < 0 || Contains(conversion.flags, '-');
        const auto wide = static_cast<std::int64_t>(conversion.width);
        const auto width = static_cast<std::size_t>(wide < 0 ? -wide : wide);
        const std::size_t padding = width > text.size() ? width - text.size() : 0;
        m_result.append(left ? 0 : padding, ' ').append(text).append(left ? padding : 0, ' ');
    }

    template <typename Number> void AppendNumber(const Conversion& conversion, const char* length, Number number)
    {
        std::string format("%");
        format.append(conversion.flags).append("*.*").append(length).push_back(conversion.type);
        std::array<char, 64> shortText{};
        const int size = std::snprintf(shortText.data(), shortText.size(), format.c_str(), conversion.width, conversion.precision, number);
        if (size < 0)
            throw std::bad_alloc();
        const auto needed = static_cast<std::size_t>(size);
        if (needed < shortText.size())
        {
            m_result.append(shortText.data(), needed);
            return;
        }
        std::string text(needed + 1, '\0');
        std::snprintf(text.data(), text.size(), format.c_str(), conversion.width, conversion.precision, number);
        m_result.append(text, 0, needed);
    }

    long long NextSigned(Length length)
    {
        switch (length)
        {
        case Length::Char:
            return static_cast<signed char>(va_arg(m_arguments, int));
        case Length::Short:
            return static_cast<short>(va_arg(m_arguments, int));
        case Length::Long:
            return va_arg(m_arguments, long);
        case Length::LongLong:
            return va_arg(m_arguments, long long);
        case Length::Max:
            return va_arg(m_arguments, std::intmax_t);
        case Length::Size:
        case Length::Difference:
            return va_arg(m_arguments, std::ptrdiff_t);
        default:
            return va_arg(m_arguments, int);
        }
    }

    unsigned long long NextUnsigned(Length length)
    {
        switch (length)
        {
        case Length::Char:
            return static_cast<unsigned char>(va_arg(m_arguments, unsigned));
        case Length::Short:
            return static_cast<unsigned short>(va_arg(m_arguments, unsigned));
        case Length::Long:
            return va_arg(m_arguments, unsigned long);
        case Length::LongLong:
            return va_arg(m_arguments, unsigned long long);
        case Length::Max:
            return va_arg(m_arguments, std::uintmax_t);
        case Length::Size:
        case Length::Difference:
            return va_arg(m_arguments, std::size_t);
        default:
            return va_arg(m_arguments, unsigned);
        }
    }

    std::va_list m_arguments;
    std::string m_result;
};

} // namespace

std::string FormatMessageText(const char* format, std::va_list arguments)
{
    return Formatter(arguments).Format(format);
}

} // namespace Eventing
