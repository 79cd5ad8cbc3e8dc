#include "Exchange.h"

#include <json/writer.h>

namespace ApplianceParts
{

Json::Value ApiError::Body() const
{
    Json::Value body(Json::objectValue);
    body["errorId"] = std::to_string(static_cast<int>(m_id));
    body["message"] = m_message;
    if (!m_item.isNull())
        body["document_info"] = m_item;
    return body;
}

std::optional<std::string> Find(const Fields& fields, std::string_view name)
{
    const auto found = fields.find(name);
    return found == fields.end() ? std::nullopt : std::optional(found->second);
}

std::string ToText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

Reply JsonReply(const Json::Value& value, int status)
{
    return {status, "application/json", ToText(value), std::nullopt};
}

Reply EmptyReply(int status)
{
    return {status, {}, {}, std::nullopt};
}

Reply ErrorReply(const ApiError& error)
{
    return JsonReply(error.Body(), error.Status());
}

} // namespace ApplianceParts
