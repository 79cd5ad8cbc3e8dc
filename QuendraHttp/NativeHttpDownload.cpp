// Downloads into a local file: a whole file, a delta against a local signature, or a range.

#include "ApiPath.h"
#include "Attributes.h"
#include "Exchange.h"
#include "Operation.h"
#include "PathSplit.h"
#include "TextComparison.h"

#include "Platform/Platform.h"

#include <string_view>

namespace
{

constexpr TraceFormat<> kCancelled{"Download cancelled"};

constexpr InitialiseRule kDeltaRequestRule{"httpRequest->Initialise, error code: 0x%x", false, true};
constexpr InitialiseRule kRangeRequestRule{"WinHttpRequest failed to initialise, error code: 0x%x"};

std::wstring WithoutLongPathPrefix(const std::wstring& path)
{
    constexpr std::wstring_view prefix = L"\\\\?\\";
    return EqualIgnoringCase(std::wstring_view(path).substr(0, prefix.size()), prefix) ? path.substr(prefix.size()) : path;
}

} // namespace

ResultCode CNativeHttp::DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                     const std::shared_ptr<IServerAttributes>& attributes,
                                     std::shared_ptr<IServerAttributes>& outAttributes, const std::wstring& signaturePath,
                                     const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::DownloadFile", [&, attributes, progress](const FunctionTraceScope&) -> ResultCode {
        return signaturePath.empty()
                   ? _Internal_DownloadFile(serverPath, localPath, attributes, outAttributes, cancelEvent, progress)
                   : _Internal_DownloadDelta(serverPath, localPath, signaturePath, attributes, outAttributes, cancelEvent, progress);
    });
}

ResultCode CNativeHttp::RefreshAttributes(const std::wstring& serverPath, const std::shared_ptr<IServerAttributes>& attributes,
                                          std::shared_ptr<IServerAttributes>& outAttributes)
{
    constexpr ApiVersion version12{1, 2};
    const ServerState server = Server();
    if (server.serverMode == 0 || (server.serverMode == kModeLegacy && server.apiVersion < version12))
        return GetPathAttributes(serverPath, outAttributes);
    outAttributes = attributes;
    return Result::Success;
}

ResultCode CNativeHttp::_Internal_DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                               const std::shared_ptr<IServerAttributes>& attributes,
                                               std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                               const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::_Internal_DownloadFile", [&](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Download request for LocalPath: %S, ServerPath: %S", localPath, serverPath);
        trace.Info("Scrubbed LocalPath: %S", localPath);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Connect())
            return failed;
        const std::wstring url = exchange.ApiBasePath() + L"/folders" + EncodedPath(serverPath) + RevisionSuffix("?", attributes.get());
        trace.Info("Complete download request: %S", url);
        if (const ResultCode failed = exchange.OpenRequest(L"GET", url))
            return failed;
        exchange.Track(serverPath);
        if (const ResultCode cancelled = exchange.CheckCancelled(cancelEvent, kCancelled))
            return cancelled;

        constexpr TraceFormat<ResultCode> receiveFailed{"SendRequestGetResponse failed, error code: %d"};
        const ResultCode result = exchange.Request().SendRequestGetResponse(localPath, &cancelEvent, progress, true, 0, 0);
        if (result >= Result::RefusalBase && result <= Result::LastRefusal)
        {
            if (const ResultCode failed =
                    exchange.Check("ReadResponse failed, error code: %d", exchange.Request().ReadResponse(exchange.Response())))
                return failed;
            exchange.LogReply();
            trace.Error(receiveFailed, result);
            // The status is part of the result already, and is not told a second time.
            return MapHttpError(0, exchange.Response());
        }
        if (const ResultCode failed = exchange.Check(receiveFailed, result))
            return failed;
        if (exchange.Status() != 200)
        {
            trace.Error(kRefused, exchange.Status());
            // By contract anything but a changed session counts as success here. The library's own transport reports success for 200 only.
            return CheckForChangedSessionToken(exchange.Status(), exchange.StartToken(), Result::Success);
        }
        trace.Info("Successfully downloaded file: %S", localPath);
        return RefreshAttributes(serverPath, attributes, outAttributes);
    });
}

ResultCode CNativeHttp::FinishDownload(const FunctionTraceScope& trace, const Exchange& exchange, const std::wstring& serverPath,
                                       const std::shared_ptr<IServerAttributes>& attributes,
                                       std::shared_ptr<IServerAttributes>& outAttributes)
{
    const std::uint32_t status = exchange.Status();
    if (status == 200)
        return RefreshAttributes(serverPath, attributes, outAttributes);
    trace.Error(kRefused, status);
    return CheckForChangedSessionToken(status, exchange.StartToken(), status);
}

ResultCode CNativeHttp::_Internal_DownloadDelta(const std::wstring& serverPath, const std::wstring& localPath,
                                                const std::wstring& signaturePath, const std::shared_ptr<IServerAttributes>& attributes,
                                                std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                                const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::_Internal_DownloadDelta", [&](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info("Download Delta request for LocalPath: %S, ServerPath: %S", localPath, serverPath);
        trace.Info("Scrubbed LocalPath: %S", localPath);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Connect())
            return failed;
        const std::wstring url = exchange.ApiBasePath() + L"/delta" + EncodedPath(serverPath) + RevisionSuffix("?", attributes.get());
        trace.Info("Endpoint: '%S'", url);
        if (const ResultCode failed = exchange.OpenRequest(L"POST", url, kDeltaRequestRule))
            return failed;
        exchange.Track(serverPath);
        if (const ResultCode cancelled = exchange.CheckCancelled(cancelEvent, kCancelled))
            return cancelled;

        IWinHttpRequest& request = exchange.Request();
        const std::wstring signature = WithoutLongPathPrefix(signaturePath);
        const std::wstring fileName = LeafName(serverPath);
        std::uint64_t partBytes = 0;
        if (const ResultCode failed = request.SendMultipartFile("file", signature, fileName, &cancelEvent, progress, &partBytes))
        {
            // By contract the message carries 0; the result is the failure's.
            trace.Error("httpRequest->SendMultipartFile, error code: 0x%x", 0);
            return failed;
        }
        static_cast<void>(request.AddMultipartHeaders(false));
        if (const ResultCode failed =
                exchange.Check("httpRequest->StartRequest, error code: %d",
                               request.StartRequest(partBytes + request.GetPostDataLength() + request.GetEndMultipartLength())))
            return failed;
        if (const ResultCode failed =
                exchange.Check("httpRequest->SendMultipartFile, error code: %d",
                               request.SendMultipartFile("file", signature, fileName, &cancelEvent, progress, nullptr)))
            return failed;
        static_cast<void>(request.EndMultipart());
        if (const ResultCode failed = exchange.Check("httpRequest->SendPostData, error code: %d", request.SendPostData()))
            return failed;
        if (const ResultCode failed =
                exchange.Check("httpRequest->GetResponse, error code: %d", request.GetResponse(localPath, &cancelEvent, progress, 0, 0)))
            return failed;
        if (exchange.Status() == 200)
            trace.Info("Successfully downloaded file: %S", localPath);
        return FinishDownload(trace, exchange, serverPath, attributes, outAttributes);
    });
}

ResultCode CNativeHttp::DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                                     const std::shared_ptr<IServerAttributes>& attributes,
                                     std::shared_ptr<IServerAttributes>& outAttributes, const std::uint64_t* skip,
                                     const std::int64_t* count, const CancelEvent& cancelEvent,
                                     const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::DownloadData", [&, attributes, progress](const FunctionTraceScope& trace) -> ResultCode {
        if (skip == nullptr || count == nullptr)
            return Result::InvalidParameter;
        trace.Info("Download data request for LocalPath: %S, ServerPath: %S", localPath, serverPath);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = exchange.Connect())
        {
            ResetTimeouts();
            return failed;
        }
        const std::wstring url = exchange.ApiBasePath() + L"/folders" + EncodedPath(serverPath) + L"?skip=" + std::to_wstring(*skip) +
                                 L"&count=" + std::to_wstring(*count) + RevisionSuffix("&", attributes.get());
        trace.Info("DownloadData request [%S]", url);
        if (const ResultCode failed = exchange.OpenRequest(L"GET", url, kRangeRequestRule))
            return failed;
        exchange.Track(serverPath);
        if (const ResultCode cancelled = exchange.CheckCancelled(cancelEvent, "DownloadData cancelled"))
            return cancelled;
        if (const ResultCode failed = exchange.Check("GetResponse failed, error code: 0x%x",
                                                     exchange.Request().SendRequestGetResponse(localPath, &cancelEvent, progress, true,
                                                                                               static_cast<std::uint32_t>(*skip),
                                                                                               static_cast<std::uint32_t>(*skip >> 32))))
            return failed;
        if (exchange.Status() == 200)
            trace.Info("Successfully downloaded data into file: %S", localPath);
        return FinishDownload(trace, exchange, serverPath, attributes, outAttributes);
    });
}
