// The change feed and the folder mappings.

#include "ApiPath.h"
#include "Exchange.h"
#include "JsonLibrary.h"
#include "Mapping.h"
#include "NotificationAction.h"
#include "Operation.h"
#include "PathUtilities.h"
#include "Settings.h"

namespace
{

constexpr const wchar_t* kFeedKey = L"/notifs";

constexpr TraceFormat<std::uint32_t> kFeedRefused{"ERROR: GetHTTPStatus shows failure, code: %d"};

// These messages print their codes in hexadecimal, in this operation only.
constexpr InitialiseRule kMappingsRequestRule{"WinHttpRequest failed to initialise, error code: 0x%x"};
constexpr TraceFormat<ResultCode> kMappingsSendFailed{"GetResponse failed, error code: 0x%x"};

// Hands a reply's root to the parser of its shape; returns what was appended, also before an exception.
template <typename Records>
std::uint32_t ProcessReply(const FunctionTraceScope& trace, const ResponseBuffer& response, Records& records,
                           std::uint32_t (*processDictionary)(const Json::Value&, Records&),
                           std::uint32_t (*processArray)(const Json::Value&, Records&))
{
    const std::size_t before = records.size();
    CatchJsonExceptions(trace, [&] {
        Json::Value root;
        if (!ParseJson(response, Comments::Skip, root))
            return;
        const bool isArray = root.isNull() || root.isArray();
        static_cast<void>(isArray ? processArray(root, records) : processDictionary(root, records));
    });
    return static_cast<std::uint32_t>(records.size() - before);
}

} // namespace

ResultCode CNativeHttp::GetChanges(std::list<CNotificationAction*>& actions)
{
    return RunOperation("CNativeHttp::GetChanges", [&](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Requesting list of changes from the server.");
        Exchange exchange(*this, trace);
        // The feed is below the endpoint path even for API 1.0, which carries the token at the end here.
        std::wstring path = exchange.Server().endpointPath + L"/notifs";
        if (exchange.Server().apiVersion == kApiVersion10)
            path += L"/" + exchange.StartToken();
        if (const ResultCode failed = exchange.Open(L"GET", path))
            return failed;
        exchange.Track(kFeedKey);
        if (const ResultCode failed = exchange.Send("ERROR: GetResponse failed, error code: %d"))
            return failed;
        if (exchange.Response().data == nullptr)
        {
            trace.Info("There are no notifications.");
            return Result::Success;
        }
        exchange.LogReply();
        if (const ResultCode refused = exchange.JudgeWithTokenCheck(kFeedRefused))
            return refused;
        GetNotificationsFromResponse(exchange.Response(), actions);
        return Result::Success;
    });
}

std::uint32_t CNativeHttp::GetNotificationsFromResponse(const ResponseBuffer& response, std::list<CNotificationAction*>& actions)
{
    const FunctionTraceScope trace("CNativeHttp::GetNotificationsFromResponse", Unit::NativeHttp);
    const std::uint32_t count =
        ProcessReply(trace, response, actions, &CNativeHttp::ProcessNotificationJSONDictionary, &CNativeHttp::ProcessNotificationJSONArray);
    trace.Info("Extracted %d notification actions from reply", count);
    return count;
}

ResultCode CNativeHttp::GetRemoteFolderMap(std::vector<CMapping*>& mappings)
{
    return RunOperation("CNativeHttp::GetRemoteFolderMap", [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(*this, trace);
        if (exchange.Server().apiVersion == kApiVersion10)
        {
            trace.Info("API Version 1.0 detected, returning default home mapping");
            auto home = std::make_unique<CMapping>(L"/home", L"Home directory", PathUtilities::NormalizePath(L""), MappingMode::Other,
                                                   L"WRITE", MappingStatus::Reachable, MappingType::Smb, 0);
            mappings.push_back(home.get());
            static_cast<void>(home.release());
            return Result::Success;
        }

        trace.Info("Retrieving remote folder mappings");
        if (const ResultCode failed = exchange.Connect())
        {
            ResetTimeouts();
            return failed;
        }
        const std::wstring path = exchange.ApiBasePath() + L"/folders?includeAll=true&timeout=" +
                                  std::to_wstring(Settings::ReadNumber(Tuning::kMappingWait.name, Tuning::kMappingWait.defaultValue));
        trace.Info("Request Path: %S", path);
        if (const ResultCode failed = exchange.OpenRequest(L"GET", path, kMappingsRequestRule))
            return failed;
        if (const ResultCode failed = exchange.Send(kMappingsSendFailed))
            return failed;
        if (const ResultCode failed = exchange.RequireBody())
            return failed;
        exchange.LogReply();
        if (const ResultCode refused = exchange.Judge())
            return refused;

        const std::uint32_t count = GetMappingsFromResponse(exchange.Response(), mappings);
        if (count == 0)
        {
            trace.Error("ERROR: No mappings returned from the server!");
            return Result::InvalidData;
        }
        trace.Info("Retrieved %d mappings from the server", count);
        return Result::Success;
    });
}

std::uint32_t CNativeHttp::GetMappingsFromResponse(const ResponseBuffer& response, std::vector<CMapping*>& mappings)
{
    std::uint32_t count = 0;
    static_cast<void>(RunOperation("CNativeHttp::GetMappingsFromResponse", [&](const FunctionTraceScope& trace) -> ResultCode {
        count = ProcessReply(trace, response, mappings, &CNativeHttp::ProcessMappingJSONDictionary, &CNativeHttp::ProcessMappingJSONArray);
        return Result::Success;
    }));
    return count;
}
