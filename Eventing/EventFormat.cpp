#include "EventFormat.h"

#include "TextConversion.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace Eventing
{
namespace
{

// Appends one argument, formatted by the C library.
template <typename Argument> void AppendPrinted(std::string& text, const std::string& conversion, Argument argument)
{
    const int length = std::snprintf(nullptr, 0, conversion.c_str(), argument);
    if (length < 0)
        throw std::length_error("The C library cannot print an argument");
    const std::size_t start = text.size();
    text.resize(start + static_cast<std::size_t>(length));
    std::snprintf(text.data() + start, static_cast<std::size_t>(length) + 1, conversion.c_str(), argument);
}

} // namespace

std::string FormatMessageText(const char* format, std::va_list arguments)
{
    std::string text;
    while (const char* const percent = std::strchr(format, '%'))
    {
        text.append(format, percent);
        format = percent + 1;
        if (*format == '%')
        {
            text += *format++;
            continue;
        }
        const Conversion conversion = ReadConversion(format);
        const std::string printed = "%" + std::string(conversion.layout);
        switch (conversion.kind)
        {
        case ArgumentKind::Narrow:
        {
            const char* const narrow = va_arg(arguments, const char*);
            AppendPrinted(text, printed + 's', narrow != nullptr ? narrow : "(null)");
            break;
        }
        case ArgumentKind::Wide:
        {
            const wchar_t* const wide = va_arg(arguments, const wchar_t*);
            AppendPrinted(text, printed + 's', ToNarrow(wide != nullptr ? wide : L"(null)").c_str());
            break;
        }
        case ArgumentKind::Int32:
            AppendPrinted(text, printed + conversion.type, va_arg(arguments, int));
            break;
        case ArgumentKind::Int64:
            AppendPrinted(text, printed + "ll" + conversion.type, va_arg(arguments, long long));
            break;
        default:
            return text.append(percent);
        }
    }
    return text.append(format);
}

} // namespace Eventing
