// What operations make of replies: members of JSON bodies, the codes of refusals, and replies in the trace.

#include "JsonLibrary.h"
#include "TextConversion.h"
#include "Wiping.h"

#include "QuendraHttp/NativeHttp.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace
{

constexpr std::uint32_t kStatusDenied = 401;

// What is rendered of a reply, in bytes: indentation alone could make a text of gigabytes out of a reply of a megabyte.
constexpr std::size_t kMostRendered = 0x100000;
constexpr std::size_t kRenderedPerByte = 16;
constexpr std::size_t kRenderedInAnyCase = 1024;

// The largest reply whose comments are rendered.
constexpr std::uint64_t kLargestWithComments = 8192;

// The leading decimal number of a text, as atoi reads it: 0 where there is none, the nearest 32-bit number where it overflows.
std::int32_t LeadingNumber(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (text.starts_with('+') && text.find_first_of("0123456789") == 1)
        text.remove_prefix(1);
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    static_cast<void>(end);
    if (error == std::errc::result_out_of_range)
        return negative ? std::numeric_limits<std::int32_t>::min() : std::numeric_limits<std::int32_t>::max();
    return error == std::errc() ? number : 0;
}

// Calls back with the member of the reply's top-level object, or null; the reply's other values need not be copied for it.
template <typename Use>
void WithMember(const char* function, const ResponseBuffer& response, const char* key, const Use& use, int line = __builtin_LINE())
{
    const FunctionTraceScope trace(function, Unit::NativeHttp, line);
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (ParseJson(response, Comments::Skip, root))
            use(static_cast<const Json::Value&>(root)[key]);
    });
}

} // namespace

Json::Value CNativeHttp::GetJSONValueFromResponse(const ResponseBuffer& response, const char* key)
{
    Json::Value value;
    WithMember("CNativeHttp::GetJSONValueFromResponse", response, key, [&](const Json::Value& member) { value = member; });
    return value;
}

bool CNativeHttp::GetJSONStringFromResponse(const ResponseBuffer& response, const char* key, std::string& text)
{
    bool found = false;
    WithMember("CNativeHttp::GetJSONStringFromResponse", response, key, [&](const Json::Value& member) {
        if (!member.isString())
            return;
        text = member.asString();
        found = true;
        // It may be a token: none of it stays behind in the value that was parsed for it alone.
        const std::string_view parsed = StringIn(member).value_or(std::string_view());
        WipeMemory(const_cast<char*>(parsed.data()), parsed.size()); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    });
    return found;
}

bool CNativeHttp::GetJSONBoolFromResponse(const ResponseBuffer& response, const char* key, bool& value)
{
    bool found = false;
    WithMember("CNativeHttp::GetJSONBoolFromResponse", response, key, [&](const Json::Value& member) {
        const bool isTrue = member == Json::Value(true) || member == Json::Value("true");
        if (!isTrue && member != Json::Value(false) && member != Json::Value("false"))
            return;
        value = isTrue;
        found = true;
    });
    return found;
}

ResultCode CNativeHttp::MapHttpError(std::uint32_t status, const ResponseBuffer& response)
{
    const FunctionTraceScope trace("CNativeHttp::MapHttpError", Unit::NativeHttp);
    std::string errorId;
    if (response.data != nullptr && GetJSONStringFromResponse(response, "errorId", errorId))
    {
        const ResultCode code = Result::RefusalBase + static_cast<ResultCode>(LeadingNumber(errorId));
        // No error id of a server can make a refusal look like a success.
        if (code != Result::Success)
            return code;
    }
    return Result::RefusalBase + status;
}

ResultCode CNativeHttp::MapHttpErrorWithTokenCheck(std::uint32_t status, const ResponseBuffer& response, const std::wstring& startToken)
{
    const FunctionTraceScope trace("CNativeHttp::MapHttpErrorWithTokenCheck", Unit::NativeHttp);
    const ResultCode code = MapHttpError(status, response);
    return code == Result::SessionInvalid ? CheckForChangedSessionToken(status, startToken, code) : code;
}

ResultCode CNativeHttp::CheckForChangedSessionToken(std::uint32_t status, const std::wstring& startToken, ResultCode code)
{
    const FunctionTraceScope trace("CNativeHttp::CheckForChangedSessionToken", Unit::NativeHttp);
    if (status != kStatusDenied)
        return code;
    std::wstring currentToken = SessionToken();
    const ScopedWipe wipe(currentToken);
    trace.Info("OriginalSession [%S] CurrentSession [%S]", startToken, currentToken);
    if (startToken == currentToken)
        return code;
    trace.Info("HTTP_STATUS_DENIED received but session token has changed. Retry required with new token");
    return Result::Retry;
}

void CNativeHttp::LogResponse(const ResponseBuffer& response)
{
    const FunctionTraceScope trace("CNativeHttp::LogResponse", Unit::NativeHttp);
    if (!trace.IsEnabled(EVT_INFO))
        return;
    CatchJsonExceptions(trace, [&] {
        // The formats take 32 bits; a reply in memory is made of pieces that long at most.
        const auto size = static_cast<std::uint32_t>(response.length);
        Json::Value root;
        if (!ParseJson(response, response.length <= kLargestWithComments ? Comments::Collect : Comments::Skip, root))
        {
            trace.Info("HTTP Response (%d bytes)", size);
            return;
        }
        trace.Info("HTTP Response (%d bytes):", size);
        const auto room = std::min<std::uint64_t>(kMostRendered, response.length * kRenderedPerByte + kRenderedInAnyCase);
        bool isCut = false;
        const std::string text = RenderJson(root, static_cast<std::size_t>(room), isCut);
        for (std::string_view rest = text; !rest.empty();)
        {
            const std::string_view line = rest.substr(0, rest.find_first_of("\r\n"));
            if (!line.empty())
                trace.Info("%S", ToWide(line));
            rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        }
        if (isCut)
            trace.Info("HTTP Response: too long to be shown as a whole");
    });
}
