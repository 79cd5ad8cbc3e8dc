// Downloads into a local file: a whole file, a delta against a local signature, or a range.

#include "Attributes.h"
#include "Operations/RevisionQuery.h"
#include "RequestCycle/Exchange.h"
#include "ServerPath.h"
#include "TextComparison.h"

#include <string_view>

namespace
{

constexpr TraceFormat<> kCancelled{"Download cancelled"};

// A failure to add headers or the boundary does not end a delta download: the reply will report the error.
constexpr MultipartSteps kSignatureSteps{.acceptsJson = false,
                                         .measure = "httpRequest->SendMultipartFile, error code: 0x%x",
                                         .measureTracesZero = true,
                                         .headers = {},
                                         .start = "httpRequest->StartRequest, error code: %d",
                                         .file = "httpRequest->SendMultipartFile, error code: %d",
                                         .end = {},
                                         .post = "httpRequest->SendPostData, error code: %d"};

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
    const ServerState server = Server();
    if (server.serverMode == kModeUnknown || (server.serverMode == kModeLegacy && server.apiVersion < kApiVersion12))
        return GetPathAttributes(serverPath, outAttributes);
    outAttributes = attributes;
    return Result::Success;
}

ResultCode CNativeHttp::_Internal_DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                               const std::shared_ptr<IServerAttributes>& attributes,
                                               std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                               const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::_Internal_DownloadFile", [&](Exchange& exchange) {
        return exchange.Info("Download request for LocalPath: %S, ServerPath: %S", localPath, serverPath)
            .Info("Scrubbed LocalPath: %S", localPath)
            .Connect()
            .OpenRequest(L"GET", [&] { return exchange.ApiPath(L"/folders", serverPath) + RevisionSuffix("?", attributes.get()); },
                         {.path = "Complete download request: %S"})
            .Track(serverPath)
            .StopIfCancelled(&cancelEvent, kCancelled)
            .PerformIntoFile({localPath, cancelEvent, progress}, Judgements::kDownloadFile)
            .Info("Successfully downloaded file: %S", localPath)
            .Then([&] { return RefreshAttributes(serverPath, attributes, outAttributes); });
    });
}

ResultCode CNativeHttp::_Internal_DownloadDelta(const std::wstring& serverPath, const std::wstring& localPath,
                                                const std::wstring& signaturePath, const std::shared_ptr<IServerAttributes>& attributes,
                                                std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                                const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::_Internal_DownloadDelta", [&](Exchange& exchange) {
        const std::wstring signature = WithoutLongPathPrefix(signaturePath);
        const FilePart part{.localPath = signature, .name = LeafName(serverPath), .cancelEvent = cancelEvent, .progress = progress};
        return exchange.Info("Download Delta request for LocalPath: %S, ServerPath: %S", localPath, serverPath)
            .Info("Scrubbed LocalPath: %S", localPath)
            .Connect()
            .OpenRequest(L"POST", [&] { return exchange.ApiPath(L"/delta", serverPath) + RevisionSuffix("?", attributes.get()); },
                         {.path = "Endpoint: '%S'", .failed = "httpRequest->Initialise, error code: 0x%x", .returnsResult = true})
            .Track(serverPath)
            .StopIfCancelled(&cancelEvent, kCancelled)
            .SendMultipart(kSignatureSteps, &part)
            .ReceiveIntoFile({localPath, cancelEvent, progress}, Judgements::kDownloadDelta)
            .Info("Successfully downloaded file: %S", localPath)
            .Then([&] { return RefreshAttributes(serverPath, attributes, outAttributes); });
    });
}

ResultCode CNativeHttp::DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                                     const std::shared_ptr<IServerAttributes>& attributes,
                                     std::shared_ptr<IServerAttributes>& outAttributes, const std::uint64_t* skip,
                                     const std::int64_t* count, const CancelEvent& cancelEvent,
                                     const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::DownloadData", [&, attributes, progress](Exchange& exchange) {
        if (skip == nullptr || count == nullptr)
            return Result::InvalidParameter;
        const auto path = [&] {
            return exchange.ApiPath(L"/folders", serverPath) + L"?skip=" + std::to_wstring(*skip) + L"&count=" + std::to_wstring(*count) +
                   RevisionSuffix("&", attributes.get());
        };
        return exchange.Info("Download data request for LocalPath: %S, ServerPath: %S", localPath, serverPath)
            .Connect({.resetsTimeouts = true})
            .OpenRequest(L"GET", path,
                         {.path = "DownloadData request [%S]", .failed = "WinHttpRequest failed to initialise, error code: 0x%x"})
            .Track(serverPath)
            .StopIfCancelled(&cancelEvent, "DownloadData cancelled")
            .PerformIntoFile({localPath, cancelEvent, progress, *skip}, Judgements::kDownloadData)
            .Info("Successfully downloaded data into file: %S", localPath)
            .Then([&] { return RefreshAttributes(serverPath, attributes, outAttributes); });
    });
}
