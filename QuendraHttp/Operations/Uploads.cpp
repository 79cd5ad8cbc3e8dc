// Uploads a whole file or a delta in one request. The body is a multipart form: the item's fields, then the file.

#include "Attributes.h"
#include "RequestCycle/Exchange.h"
#include "ServerPath.h"
#include "Settings.h"
#include "Wiping.h"

namespace
{

// The server needs longer for a delta, so it has its own send timeout and another default for the receive timeout.
Settings::OncePerProcessNumber g_deltaSendTimeout(Tuning::kDeltaSendTimeout);
Settings::OncePerProcessNumber g_deltaReceiveTimeout(Tuning::kDeltaReceiveTimeout);

// How the two kinds of upload differ.
struct UploadKind
{
    const wchar_t* endpoint;
    TraceFormat<std::wstring> endpointMessage;
    TraceFormat<std::wstring> timeMessage;
    MultipartSteps steps;
    void (*appendFields)(Exchange& exchange, const IServerAttributes& item);
};

struct Upload
{
    const std::wstring& localPath;
    const std::wstring& serverPath;
    const CancelEvent& cancelEvent;
    const std::shared_ptr<IProgressCallback>& progress;
};

void AppendCreationTime(Exchange& exchange, const IServerAttributes& item)
{
    exchange.MultipartField(L"creation_time", item.GetCreationTime().ToString());
}

void AppendModificationTime(Exchange& exchange, const IServerAttributes& item)
{
    exchange.MultipartField(L"modification_time", item.GetLastWriteTime().ToString());
}

// The last fields of both kinds.
void AppendBitsSizeAndRevision(Exchange& exchange, const IServerAttributes& item)
{
    exchange.MultipartField("attributes", item.GetAttributesStringA()).MultipartField("size", item.GetSizeStringA());
    if (const std::string revision = item.GetRevision(); !revision.empty())
        exchange.Info("Revision: %s", revision).MultipartField("revision", revision);
}

constexpr UploadKind kWholeFile{.endpoint = L"/folders",
                                .endpointMessage = "Endpoint: [%S]",
                                .timeMessage = "Mod time: [%S]",
                                .steps = {},
                                .appendFields = [](Exchange& exchange, const IServerAttributes& item) {
                                    exchange.MultipartField("operation", "create");
                                    AppendCreationTime(exchange, item);
                                    AppendModificationTime(exchange, item);
                                    AppendBitsSizeAndRevision(exchange, item);
                                }};

// A failure of `AddMultipartHeaders`, the first write or the boundary does not end a delta upload: the reply will report the error.
constexpr UploadKind kDelta{.endpoint = L"/delta",
                            .endpointMessage = "Endpoint: '%S'",
                            .timeMessage = "Mod time: '%S'",
                            .steps = {.headers = {}, .fields = {}, .end = {}},
                            .appendFields = [](Exchange& exchange, const IServerAttributes& item) {
                                AppendModificationTime(exchange, item);
                                AppendCreationTime(exchange, item);
                                AppendBitsSizeAndRevision(exchange, item);
                            }};

// Runs either kind of upload and takes the item from the reply.
// @param item        what is sent; the caller keeps it alive.
// @param attributes  the caller's; replaced by the reply's item.
Exchange& PerformUpload(Exchange& exchange, const UploadKind& kind, const ConnectionOptions& connection, const Upload& upload,
                        const IServerAttributes& item, std::shared_ptr<IServerAttributes>& attributes)
{
    std::wstring url = exchange.ApiPath(kind.endpoint, upload.serverPath);
    const ScopedWipe wipe(url);
    const FilePart file{
        .localPath = upload.localPath, .name = LeafName(upload.serverPath), .cancelEvent = upload.cancelEvent, .progress = upload.progress};
    return exchange.Connect(connection)
        .Info(kind.endpointMessage, url)
        .Info(kind.timeMessage, item.GetLastWriteTime().ToString())
        .OpenRequest(L"POST", url, {.path = {}})
        .Track(upload.serverPath)
        .StopIfCancelled(&upload.cancelEvent, "Upload cancelled")
        .SendMultipart(kind.steps, &file, [&] { kind.appendFields(exchange, item); })
        .Receive()
        // Test once more after the reply: a cancel wins even if the server has stored the file.
        .StopIfCancelled(&upload.cancelEvent)
        .Judge(Judgements::kUploadFile)
        .TakeItemOfConflict(attributes)
        .LogReply()
        .Info("File uploaded successfully: %S", upload.localPath)
        .TakeItem({.missing = "Failed to extract attributes from response"}, attributes);
}

} // namespace

ResultCode CNativeHttp::UploadFile(const std::wstring& localPath, const std::wstring& serverPath,
                                   std::shared_ptr<IServerAttributes>& attributes, const std::uint32_t* deltaFlag,
                                   const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::UploadFile", [&, progress](const FunctionTraceScope& trace) -> ResultCode {
        if (!attributes || deltaFlag == nullptr)
            return Result::InvalidParameter;
        trace.Info("Uploading [%S] with API tag [%s]", localPath, attributes->GetRevision());
        return *deltaFlag != 0 ? _Internal_UploadDelta(localPath, serverPath, attributes, cancelEvent, progress)
                               : _Internal_UploadFile(localPath, serverPath, attributes, cancelEvent, progress);
    });
}

ResultCode CNativeHttp::_Internal_UploadFile(const std::wstring& localPath, const std::wstring& serverPath,
                                             std::shared_ptr<IServerAttributes>& attributes, const CancelEvent& cancelEvent,
                                             const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::_Internal_UploadFile", [&, sent = attributes](Exchange& exchange) {
        exchange.Info("Upload local path: [%S] for server path: [%S]", localPath, serverPath);
        return PerformUpload(exchange, kWholeFile, {}, {localPath, serverPath, cancelEvent, progress}, *sent, attributes)
            .Info("Extracted attributes from upload reply")
            .Outcome();
    });
}

ResultCode CNativeHttp::_Internal_UploadDelta(const std::wstring& localPath, const std::wstring& serverPath,
                                              std::shared_ptr<IServerAttributes>& attributes, const CancelEvent& cancelEvent,
                                              const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::_Internal_UploadDelta", [&, sent = attributes](Exchange& exchange) {
        exchange.Info("Upload local path: '%S' for server path: '%S'", localPath, serverPath);
        const ConnectionOptions connection{.sendTimeout = static_cast<std::uint32_t>(g_deltaSendTimeout.Get()),
                                           .receiveTimeout = static_cast<std::uint32_t>(g_deltaReceiveTimeout.Get())};
        return PerformUpload(exchange, kDelta, connection, {localPath, serverPath, cancelEvent, progress}, *sent, attributes).Then([&] {
            exchange.Trace().Info("Extracted attributes from upload reply, Rev: %s", attributes->GetRevision());
            return Result::Success;
        });
    });
}
