#include "Replies/JsonReplies.h"

#include "TextConversion.h"
#include "Wiping.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace
{

// The limit for rendered text, in bytes: indentation alone can turn a 1 MB reply into gigabytes.
constexpr std::size_t kMostRendered = 0x100000;
constexpr std::size_t kRenderedPerByte = 16;
constexpr std::size_t kRenderedInAnyCase = 1024;

// The largest reply whose comments are rendered.
constexpr std::uint64_t kLargestWithComments = 8192;

// Calls back with the member of the reply's top-level object, or null. The member is not copied.
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

Json::Value GetJSONValueFromResponse(const ResponseBuffer& response, const char* key)
{
    Json::Value value;
    WithMember("CNativeHttp::GetJSONValueFromResponse", response, key, [&](const Json::Value& member) { value = member; });
    return value;
}

bool GetJSONStringFromResponse(const ResponseBuffer& response, const char* key, std::string& text)
{
    bool found = false;
    WithMember("CNativeHttp::GetJSONStringFromResponse", response, key, [&](const Json::Value& member) {
        if (!member.isString())
            return;
        text = member.asString();
        found = true;
        // The text may be a token: wipe it from the parsed value.
        const std::string_view parsed = StringIn(member).value_or(std::string_view());
        WipeMemory(const_cast<char*>(parsed.data()), parsed.size()); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    });
    return found;
}

bool GetJSONBoolFromResponse(const ResponseBuffer& response, const char* key, bool& value)
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

ResultCode GetMetaDataFromResponse(const ResponseBuffer& response, std::int64_t* offset, std::uint32_t* locked)
{
    const FunctionTraceScope trace("CNativeHttp::GetMetaDataFromResponse", Unit::NativeHttp);
    // A truncated reply must be an error: otherwise the caller would resume at a stale offset.
    ResultCode result = Result::InvalidData;
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (!ParseJson(response, Comments::Skip, root) || !root.isObject())
            return;
        result = Result::Success;
        const Json::Value* const received = FindMember(root, "bytes_received");
        const bool isText = received != nullptr && received->isString();
        if (isText || (received != nullptr && received->isInt64()))
        {
            *offset = isText ? std::strtoll(received->asCString(), nullptr, 10) : received->asInt64();
            trace.Info("Got offset %lld", *offset);
        }
        // Only a string counts; a JSON boolean leaves the flag unchanged. This is part of the interface.
        if (const Json::Value* const isLocked = FindMember(root, "is_locked"); isLocked != nullptr && isLocked->isString())
        {
            *locked = isLocked->asString() == "true" ? 1 : 0;
            trace.Info("Got locked %d", *locked);
        }
    });
    return result;
}

void LogResponse(const ResponseBuffer& response)
{
    const FunctionTraceScope trace("CNativeHttp::LogResponse", Unit::NativeHttp);
    if (!trace.IsEnabled(EVT_INFO))
        return;
    CatchJsonExceptions(trace, [&] {
        // The trace formats take 32-bit sizes.
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
