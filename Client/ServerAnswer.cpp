#include "ServerAnswer.h"

#include "JsonText.h"
#include "TerminalText.h"

#include <charconv>

namespace
{

// Refusals are short; longer replies, such as listings, are cut off.
constexpr std::size_t kLongestReply = 65536;
constexpr std::size_t kLongestMessage = 300;

constexpr std::string_view kOperations = "CNativeHttp::";
constexpr std::string_view kRequest = "WinHttpRequest::Initialise";
constexpr std::string_view kNotices = "WinHttpRequest::OnStatus";
constexpr std::string_view kReplies = "CNativeHttp::LogResponse";

// Servers use different names for the message.
std::string MessageIn(const std::string& reply)
{
    constexpr const char* kNames[] = {"message", "errorMessage", "error_description", "description", "detail", "error"};
    const auto root = ParseJsonObject(reply);
    if (!root)
        return {};
    for (const char* name : kNames)
        if (const Json::Value& member = (*root)[name]; member.isString() && !member.asString().empty())
            return FitTo(Printable(std::string_view(member.asString())), kLongestMessage);
    return {};
}

} // namespace

std::optional<std::string_view> TextAfter(std::string_view prefix, std::string_view text)
{
    return text.starts_with(prefix) ? std::optional(text.substr(prefix.size())) : std::nullopt;
}

std::uint32_t LeadingNumber(std::string_view text)
{
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

void AnswerReader::Take(const Eventing::Event& event)
{
    const std::string_view function = event.function;
    // The system may notify on a thread of its own.
    if (std::this_thread::get_id() != m_thread && function != kNotices)
        return;
    if (event.descriptor->id == Eventing::kFunctionEntryId)
    {
        // A later request of the same operation may get no answer.
        if ((m_depth++ == 0 && function.starts_with(kOperations)) || function == kRequest)
        {
            m_reply.clear();
            m_status = 0;
            m_redirect.clear();
        }
    }
    else if (event.descriptor->id == Eventing::kFunctionExitId || std::string_view(event.message) == "[EXCEPTION EXIT]")
    {
        m_depth -= m_depth > 0 ? 1 : 0;
    }
    else
    {
        TakeMessage(function, event.message);
        if (m_watcher)
            m_watcher(event.message);
    }
}

void AnswerReader::TakeMessage(std::string_view function, std::string_view message)
{
    if (function == kReplies)
    {
        if (message.starts_with("HTTP Response ("))
            m_reply.clear();
        else if (m_reply.size() < kLongestReply)
            m_reply.append(message).append("\n");
    }
    else if (const auto status = TextAfter("The server answered with HTTP ", message))
    {
        m_status = LeadingNumber(*status);
    }
    else if (const auto target = TextAfter("The server redirects to ", message))
    {
        const std::size_t end = target->find(". Redirects");
        m_redirect = target->substr(0, end);
    }
}

ServerAnswer AnswerReader::Answer() const
{
    return {m_status, MessageIn(m_reply), Printable(std::string_view(m_redirect)), m_reply};
}
