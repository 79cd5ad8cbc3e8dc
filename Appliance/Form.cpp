#include "Form.h"

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kLargestForm = 4 * 1024 * 1024;

int HexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

std::string DecodeField(std::string_view text)
{
    auto decoded = PercentDecode(text, Plus::IsSpace);
    if (!decoded || !IsValidUtf8(*decoded))
        throw ApiError(400, ErrorId::Malformed, "the form is not percent-encoded UTF-8");
    return std::move(*decoded);
}

} // namespace

std::optional<std::string> PercentDecode(std::string_view text, Plus plus)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index)
    {
        if (text[index] == '%')
        {
            if (text.size() - index < 3)
                return std::nullopt;
            const int high = HexDigit(text[index + 1]);
            const int low = HexDigit(text[index + 2]);
            if (high < 0 || low < 0)
                return std::nullopt;
            result += static_cast<char>(high * 16 + low);
            index += 2;
        }
        else
        {
            result += text[index] == '+' && plus == Plus::IsSpace ? ' ' : text[index];
        }
    }
    return result;
}

bool IsValidUtf8(std::string_view text)
{
    std::size_t index = 0;
    while (index < text.size())
    {
        const auto lead = static_cast<unsigned char>(text[index++]);
        if (lead < 0x80)
            continue;
        const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || text.size() - index < more)
            return false;
        char32_t value = lead & (0x3FU >> more);
        for (std::size_t count = 0; count < more; ++count, ++index)
        {
            const auto unit = static_cast<unsigned char>(text[index]);
            if ((unit & 0xC0U) != 0x80)
                return false;
            value = (value << 6U) | (unit & 0x3FU);
        }
        const bool isOverlong = (more == 2 && value < 0x800) || (more == 3 && value < 0x10000);
        if (isOverlong || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
    }
    return true;
}

Fields ReadForm(const Request& request)
{
    std::string body;
    request.readBody([&body](std::string_view piece) {
        if (body.size() + piece.size() > kLargestForm)
            throw ApiError(413, ErrorId::Malformed, "the form is too large");
        body += piece;
    });

    Fields fields;
    std::string_view rest = body;
    while (!rest.empty())
    {
        const auto pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        if (pair.empty())
            continue;
        const auto equals = std::min(pair.size(), pair.find('='));
        fields.emplace(DecodeField(pair.substr(0, equals)), DecodeField(pair.substr(std::min(pair.size(), equals + 1))));
    }
    return fields;
}

std::string Require(const Fields& fields, std::string_view name)
{
    auto value = Find(fields, name);
    if (!value)
        throw ApiError(400, ErrorId::Malformed, "the field \"" + std::string(name) + "\" is missing");
    return std::move(*value);
}

} // namespace ApplianceParts
