#include "Http.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <charconv>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kLargestForm = 4 * 1024 * 1024;

std::string DecodeField(std::string text)
{
    std::replace(text.begin(), text.end(), '+', ' ');
    auto decoded = PercentDecode(text);
    if (!decoded || !IsValidUtf8(*decoded))
        throw Malformed("a query or form is not percent-encoded UTF-8");
    return std::move(*decoded);
}

} // namespace

ApiError Malformed(const std::string& message)
{
    return {400, ErrorId::Malformed, message};
}

std::optional<std::string> Find(const Fields& fields, std::string_view name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::nullopt : std::optional(found->second);
}

std::string Require(const Fields& fields, std::string_view name)
{
    auto value = Find(fields, name);
    if (!value)
        throw Malformed("the field \"" + std::string(name) + "\" is missing");
    return std::move(*value);
}

Reply JsonReply(const Json::Value& value, int status)
{
    return {.status = status, .contentType = "application/json", .text = ToText(value)};
}

Json::Value JsonObject(JsonMembers members)
{
    Json::Value value(Json::objectValue);
    for (const auto& [name, member] : members)
        value[name] = member;
    return value;
}

Reply JsonReply(JsonMembers members)
{
    return JsonReply(JsonObject(members));
}

Reply ErrorReply(const ApiError& error)
{
    auto body = JsonObject({{"errorId", std::to_string(static_cast<int>(error.id))}, {"message", error.message}});
    if (!error.item.isNull())
        body["document_info"] = error.item;
    return JsonReply(body, error.status);
}

std::string ToText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

std::optional<Json::Value> ParseObject(std::string_view text)
{
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const bool isParsed = reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
    return isParsed && value.isObject() ? std::optional(std::move(value)) : std::nullopt;
}

std::string LowerAscii(std::string_view text)
{
    std::string lower(text);
    for (char& unit : lower)
        unit = unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit + 32) : unit;
    return lower;
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

std::optional<std::string> PercentDecode(std::string_view text)
{
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index)
    {
        if (text[index] != '%')
        {
            result += text[index];
            continue;
        }
        const auto digits = text.substr(index + 1, 2);
        unsigned byte = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (digits.size() < 2 || error != std::errc() || end != digits.data() + 2)
            return std::nullopt;
        result += static_cast<char>(byte);
        index += 2;
    }
    return result;
}

Fields ParseFields(std::string_view text)
{
    Fields fields;
    while (!text.empty())
    {
        const auto pair = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(text.size(), pair.size() + 1));
        const auto equals = std::min(pair.size(), pair.find('='));
        if (!pair.empty())
            fields.emplace(DecodeField(std::string(pair.substr(0, equals))),
                           DecodeField(std::string(pair.substr(std::min(pair.size(), equals + 1)))));
    }
    return fields;
}

Fields ReadForm(const Request& request)
{
    std::string body;
    request.readBody([&body](std::string_view piece) {
        if (body.size() + piece.size() > kLargestForm)
            throw ApiError(413, ErrorId::Malformed, "the form is too large");
        body += piece;
    });
    return ParseFields(body);
}

} // namespace ApplianceParts
