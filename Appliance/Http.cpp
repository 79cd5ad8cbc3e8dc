#include "Http.h"

#include "JsonText.h"
#include "TextComparison.h"
#include "TextConversion.h"

#include <algorithm>
#include <charconv>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kLargestForm = 4 * 1024 * 1024;
constexpr std::size_t kMostFields = 10'000;

std::string DecodeField(std::string_view encoded)
{
    std::string text(encoded);
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
    return {.status = status, .text = JsonLine(value)};
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
    auto body = JsonObject({{"errorId", std::to_string(static_cast<int>(error.id))}, {"message", error.what()}});
    if (!error.item.isNull())
        body["document_info"] = error.item;
    return JsonReply(body, error.status);
}

std::optional<std::string> PercentDecode(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        auto byte = static_cast<unsigned char>(text[at]);
        if (byte == '%')
        {
            const auto digits = text.substr(at + 1, 2);
            if (digits.size() < 2 || std::from_chars(digits.data(), digits.data() + 2, byte, 16).ptr != digits.data() + 2)
                return std::nullopt;
            at += 2;
        }
        result += static_cast<char>(byte);
    }
    return result;
}

Fields ParseFields(std::string_view text)
{
    Fields fields;
    while (!text.empty())
    {
        const auto pair = TakeUpTo(text, "&");
        auto value = pair;
        const auto name = TakeUpTo(value, "=");
        fields.emplace(DecodeField(name), DecodeField(value));
        if (fields.size() > kMostFields)
            throw Malformed("a query or form has too many fields");
    }
    return fields;
}

Fields ReadForm(const Request& request)
{
    std::string body;
    for (auto piece = request.readBody(); !piece.empty(); piece = request.readBody())
    {
        if (body.size() + piece.size() > kLargestForm)
            throw ApiError(413, ErrorId::Malformed, "the form is too large");
        body += piece;
    }
    return ParseFields(body);
}

std::string_view TakeUpTo(std::string_view& text, std::string_view separator)
{
    const auto taken = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), taken.size() + separator.size()));
    return taken;
}

std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view kSpaces = " \t\r\n";
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(kSpaces)));
    return text.substr(0, text.find_last_not_of(kSpaces) + 1);
}

std::optional<std::string> Parameter(std::string_view value, std::string_view name)
{
    while (!value.empty())
    {
        bool isQuoted = false;
        const auto end = std::find_if(value.begin(), value.end(), [&isQuoted](char unit) {
            isQuoted = isQuoted != (unit == '"');
            return unit == ';' && !isQuoted;
        });
        const auto parameter = value.substr(0, static_cast<std::size_t>(end - value.begin()));
        value.remove_prefix(std::min(value.size(), parameter.size() + 1));
        auto text = parameter;
        const auto itsName = TakeUpTo(text, "=");
        if (itsName.size() == parameter.size() || !EqualIgnoringAsciiCase(Trimmed(itsName), name))
            continue;
        text = Trimmed(text);
        if (text.size() >= 2 && text.starts_with('"') && text.ends_with('"'))
            text = text.substr(1, text.size() - 2);
        return std::string(text);
    }
    return std::nullopt;
}

} // namespace ApplianceParts
