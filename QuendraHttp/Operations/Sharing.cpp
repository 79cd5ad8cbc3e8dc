// Operations that post a form and check only the status: share links, audit data, acknowledging a remote wipe.

#include "RequestCycle/Exchange.h"
#include "TextConversion.h"

ResultCode CNativeHttp::GenerateLink(std::shared_ptr<ShareRequest> request)
{
    return RunExchange(*this, "CNativeHttp::GenerateLink", [&](Exchange& exchange) {
        if (!request)
            return Result::InvalidParameter;
        exchange.Open(L"POST", exchange.ApiPath(L"/share"));
        for (const std::wstring& path : request->paths)
            exchange.Field("path", path);
        for (const std::wstring& target : request->targets)
            exchange.Field("target", target);
        return exchange.Field("name", request->name)
            .Field("message", request->message)
            .LastField("type", L"USER")
            .Perform(Judgements::kGenerateLink)
            .Outcome();
    });
}

ResultCode CNativeHttp::PublishSyncStats(const std::string& data)
{
    return RunExchange(*this, "CNativeHttp::PublishSyncStats", [&](Exchange& exchange) {
        const std::wstring& path = exchange.Server().loggingEndpointPath;
        return exchange.Connect()
            .EndIf([&path] { return path.empty(); }, Result::ServerDisabled, "This server does not have an auditing end point")
            .Info("Publishing auditing data to endpoint [%S]", path)
            .OpenRequest(L"POST", path)
            .Field("data", ToWide(data))
            .Perform(Judgements::kPublishSyncStats)
            .Outcome();
    });
}

ResultCode CNativeHttp::AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId)
{
    return RunExchange(*this, "CNativeHttp::AcknowledgeRemoteWipe", [&](Exchange& exchange) {
        if (exchange.Server().apiVersion == kApiVersion10)
        {
            exchange.Trace().Error("AcknowledgeRemoteWipe is not supported on this server version");
            return Result::Success;
        }
        // This path has no leading "/" and no base path.
        return exchange.Open(L"POST", L"api/devices", {.failedTo = "WinHttpConnection failed to initialise for [%S, %d], error code: %d"})
            .Field("username", userName)
            .Field("device_id", deviceId)
            .PerformStreamed(Judgements::kAcknowledgeRemoteWipe)
            .Info("Remote wipe successfully acknowledged")
            .Outcome();
    });
}
