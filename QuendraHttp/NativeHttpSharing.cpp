// Operations that post a form and look at the status only: share links, audit data, the acknowledgement of a remote wipe.

#include "ApiPath.h"
#include "Exchange.h"
#include "Operation.h"

#include "Platform/Platform.h"

namespace
{

constexpr const wchar_t* kDevicesPath = L"api/devices"; // as it is: no leading "/", no base path

constexpr NamingFormat kWipeConnectionFailed{"WinHttpConnection failed to initialise for [%S, %d], error code: %d"};
constexpr InitialiseRule kWipeConnectionRule{kConnectionRule.message, false, false, &kWipeConnectionFailed};

} // namespace

ResultCode CNativeHttp::GenerateLink(std::shared_ptr<ShareRequest> request)
{
    return RunOperation("CNativeHttp::GenerateLink", [&](const FunctionTraceScope& trace) -> ResultCode {
        if (!request)
            return Result::InvalidParameter;
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Open(L"POST", exchange.ApiBasePath() + L"/share"))
            return failed;
        for (const std::wstring& path : request->paths)
            exchange.Field("path", path);
        for (const std::wstring& target : request->targets)
            exchange.Field("target", target);
        exchange.Field("name", request->name).Field("message", request->message).LastField("type", L"USER");
        if (const ResultCode failed = exchange.Receive())
            return failed;
        return exchange.Judge();
    });
}

ResultCode CNativeHttp::PublishSyncStats(const std::string& data)
{
    return RunOperation("CNativeHttp::PublishSyncStats", [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Connect())
            return failed;
        const std::wstring& path = exchange.Server().loggingEndpointPath;
        if (path.empty())
        {
            trace.Error("This server does not have an auditing end point");
            return Result::ServerDisabled;
        }
        trace.Info("Publishing auditing data to endpoint [%S]", path);
        trace.Info("Request Path: %S", path);
        if (const ResultCode failed = exchange.OpenRequest(L"POST", path))
            return failed;
        // Replies to audit data are not logged.
        if (const ResultCode failed = exchange.Field("data", ToWide(data)).Send())
            return failed;
        return exchange.Judge();
    });
}

ResultCode CNativeHttp::AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId)
{
    return RunOperation("CNativeHttp::AcknowledgeRemoteWipe", [&](const FunctionTraceScope& trace) -> ResultCode {
        Exchange exchange(*this, trace);
        const ServerState& server = exchange.Server();
        if (server.apiVersion == kApiVersion10)
        {
            trace.Error("AcknowledgeRemoteWipe is not supported on this server version");
            return Result::Success;
        }
        if (const ResultCode failed = exchange.Connect(kWipeConnectionRule))
            return failed;
        trace.Info("Request Path: %S", kDevicesPath);
        if (const ResultCode failed = exchange.OpenRequest(L"POST", kDevicesPath))
            return failed;
        if (const ResultCode failed = exchange.Field("username", userName).Field("device_id", deviceId).FormResult())
            return failed;

        // The form goes out like a streamed body.
        IWinHttpRequest& request = exchange.Request();
        ResultCode result = request.StartRequest(request.GetPostDataLength());
        if (result == Result::Success)
            result = request.SendPostData();
        if (result == Result::Success)
            result = request.ReceiveResponse(exchange.Response());
        if (const ResultCode failed = exchange.Check("ReceiveResponse failed, error code: %d", result))
            return failed;
        exchange.LogReply();
        if (const std::uint32_t status = exchange.Status(); status != 200)
        {
            trace.Error(kRefused, status);
            // By contract the bare status, not a mapped code. A reply without a status is no success.
            return status != 0 ? status : Result::InvalidServerResponse;
        }
        trace.Info("Remote wipe successfully acknowledged");
        return Result::Success;
    });
}
