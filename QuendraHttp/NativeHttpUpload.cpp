// Uploads of a whole file, or of a delta, in one request whose body is a multipart form: the item's fields, then the file.

#include "ApiPath.h"
#include "Attributes.h"
#include "Exchange.h"
#include "Operation.h"
#include "PathSplit.h"
#include "Settings.h"
#include "UploadReply.h"

#include "Platform/Platform.h"

namespace
{

// A delta takes the server longer: it has a send timeout of its own, and the receive timeout with another default.
Settings::OncePerProcessNumber g_deltaSendTimeout(Tuning::kDeltaSendTimeout);
Settings::OncePerProcessNumber g_deltaReceiveTimeout(Tuning::kDeltaReceiveTimeout);

constexpr TraceFormat<ResultCode> kFileFailed{"SendMultipartFile failed, error code: %d"};
constexpr TraceFormat<ResultCode> kFieldFailed{"AddMultipartFormData failed, error code: %d"};
constexpr TraceFormat<ResultCode> kStartFailed{"StartRequest failed, error code: %d"};
constexpr TraceFormat<ResultCode> kPostFailed{"SendPostData failed, error code: %d"};
constexpr TraceFormat<ResultCode> kReceiveFailed{"ReceiveResponse failed, error code: %d"};

// One upload's form fields, appended in the order in which they are named. After one that failed the others do nothing.
class UploadForm
{
public:
    UploadForm(IWinHttpRequest& request, const IServerAttributes& attributes, const FunctionTraceScope& trace)
        : m_request(request), m_attributes(attributes), m_trace(trace)
    {
    }

    UploadForm& Operation(const char* operation) { return Narrow("operation", operation); }
    UploadForm& CreationTime() { return Wide(L"creation_time", m_attributes.GetCreationTime().ToString()); }
    UploadForm& ModificationTime() { return Wide(L"modification_time", m_attributes.GetLastWriteTime().ToString()); }
    UploadForm& AttributeBits() { return Narrow("attributes", m_attributes.GetAttributesStringA()); }
    UploadForm& Size() { return Narrow("size", m_attributes.GetSizeStringA()); }
    UploadForm& Revision()
    {
        const std::string revision = m_attributes.GetRevision();
        if (revision.empty())
            return *this;
        m_trace.Info("Revision: %s", revision);
        return Narrow("revision", revision);
    }

    [[nodiscard]] ResultCode Outcome() const { return m_result; }

private:
    UploadForm& Narrow(const char* name, const std::string& value)
    {
        if (m_result == Result::Success)
            m_result = m_request.AddMultipartFormData(name, value.c_str());
        return *this;
    }
    UploadForm& Wide(const wchar_t* name, const std::wstring& value)
    {
        if (m_result == Result::Success)
            m_result = m_request.AddMultipartFormData(name, value.c_str());
        return *this;
    }

    IWinHttpRequest& m_request;
    const IServerAttributes& m_attributes;
    const FunctionTraceScope& m_trace;
    ResultCode m_result = Result::Success;
};

// How the two kinds of upload differ.
struct UploadKind
{
    const wchar_t* endpoint;
    TraceFormat<std::wstring, std::wstring> pathsMessage;
    TraceFormat<std::wstring> endpointMessage;
    TraceFormat<std::wstring> timeMessage;
    void (*appendFields)(UploadForm& form);
    bool judgesEverySend; ///< a delta does not end where its headers, its first write or its boundary fail: the reply shows it.
};

void AppendFileFields(UploadForm& form)
{
    form.Operation("create").CreationTime().ModificationTime().AttributeBits().Size().Revision();
}

void AppendDeltaFields(UploadForm& form)
{
    form.ModificationTime().CreationTime().AttributeBits().Size().Revision();
}

constexpr UploadKind kWholeFile{
    L"/folders", "Upload local path: [%S] for server path: [%S]", "Endpoint: [%S]", "Mod time: [%S]", &AppendFileFields, true};
constexpr UploadKind kDelta{
    L"/delta", "Upload local path: '%S' for server path: '%S'", "Endpoint: '%S'", "Mod time: '%S'", &AppendDeltaFields, false};

struct Upload
{
    const UploadKind& kind;
    const std::wstring& localPath;
    const std::wstring& serverPath;
    const IServerAttributes& attributes;
    const CancelEvent& cancelEvent;
    const std::shared_ptr<IProgressCallback>& progress;
};

// Measures the body, announces it and writes it.
ResultCode SendForm(const Upload& upload, const FunctionTraceScope& trace, const Exchange& exchange)
{
    IWinHttpRequest& request = exchange.Request();
    const std::wstring fileName = LeafName(upload.serverPath);
    const auto checkWhereJudged = [&](const TraceFormat<ResultCode>& failure, ResultCode result) {
        return upload.kind.judgesEverySend ? exchange.Check(failure, result) : Result::Success;
    };

    std::uint64_t fileBytes = 0;
    if (const ResultCode failed = exchange.Check(
            kFileFailed, request.SendMultipartFile("file", upload.localPath, fileName, &upload.cancelEvent, upload.progress, &fileBytes)))
        return failed;
    if (const ResultCode failed = checkWhereJudged("AddMultipartHeaders failed, error code: %d", request.AddMultipartHeaders(true)))
        return failed;
    UploadForm form(request, upload.attributes, trace);
    upload.kind.appendFields(form);
    if (const ResultCode failed = exchange.Check(kFieldFailed, form.Outcome()))
        return failed;

    const std::uint64_t contentLength = fileBytes + request.GetPostDataLength() + request.GetEndMultipartLength();
    if (const ResultCode failed = exchange.Check(kStartFailed, request.StartRequest(contentLength)))
        return failed;
    if (const ResultCode failed = checkWhereJudged(kPostFailed, request.SendPostData()))
        return failed;
    if (const ResultCode failed = exchange.Check(
            kFileFailed, request.SendMultipartFile("file", upload.localPath, fileName, &upload.cancelEvent, upload.progress, nullptr)))
        return failed;
    if (const ResultCode failed = checkWhereJudged("EndMultipart failed, error code: %d", request.EndMultipart()))
        return failed;
    return exchange.Check(kPostFailed, request.SendPostData());
}

// The road of both kinds up to the server's answer.
ResultCode Send(const Upload& upload, const FunctionTraceScope& trace, Exchange& exchange, std::uint64_t sendTimeout,
                std::uint64_t receiveTimeout)
{
    if (const ResultCode failed = exchange.Connect(kConnectionRule, sendTimeout, receiveTimeout))
        return failed;
    const std::wstring url = exchange.ApiBasePath() + upload.kind.endpoint + EncodedPath(upload.serverPath);
    trace.Info(upload.kind.endpointMessage, url);
    trace.Info(upload.kind.timeMessage, upload.attributes.GetLastWriteTime().ToString());
    if (const ResultCode failed = exchange.OpenRequest(L"POST", url))
        return failed;
    exchange.Track(upload.serverPath);
    if (const ResultCode cancelled = exchange.CheckCancelled(upload.cancelEvent, "Upload cancelled"))
        return cancelled;
    if (const ResultCode failed = SendForm(upload, trace, exchange))
        return failed;
    if (const ResultCode failed = exchange.Check(kReceiveFailed, exchange.Request().ReceiveResponse(exchange.Response())))
        return failed;
    // A cancel that comes with the answer still counts, whatever the server has done.
    return IsSignalled(&upload.cancelEvent) ? Result::Cancelled : Result::Success;
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
    return RunOperation("CNativeHttp::_Internal_UploadFile", [&, sent = attributes](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info(kWholeFile.pathsMessage, localPath, serverPath);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = Send({kWholeFile, localPath, serverPath, *sent, cancelEvent, progress}, trace, exchange, 0, 0))
            return failed;
        if (const ResultCode ended = JudgeUpload(trace, exchange, localPath, attributes))
            return ended;
        trace.Info("Extracted attributes from upload reply");
        return Result::Success;
    });
}

ResultCode CNativeHttp::_Internal_UploadDelta(const std::wstring& localPath, const std::wstring& serverPath,
                                              std::shared_ptr<IServerAttributes>& attributes, const CancelEvent& cancelEvent,
                                              const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::_Internal_UploadDelta", [&, sent = attributes](const FunctionTraceScope& trace) -> ResultCode {
        trace.Info(kDelta.pathsMessage, localPath, serverPath);
        Exchange exchange(*this, trace);
        const auto sendTimeout = static_cast<std::uint32_t>(g_deltaSendTimeout.Get());
        const auto receiveTimeout = static_cast<std::uint32_t>(g_deltaReceiveTimeout.Get());
        if (const ResultCode failed =
                Send({kDelta, localPath, serverPath, *sent, cancelEvent, progress}, trace, exchange, sendTimeout, receiveTimeout))
            return failed;
        if (const ResultCode ended = JudgeUpload(trace, exchange, localPath, attributes))
            return ended;
        trace.Info("Extracted attributes from upload reply, Rev: %s", attributes->GetRevision());
        return Result::Success;
    });
}

ResultCode CNativeHttp::JudgeUpload(const FunctionTraceScope& trace, Exchange& exchange, const std::wstring& localPath,
                                    std::shared_ptr<IServerAttributes>& attributes)
{
    if (exchange.Status() != 200)
        return JudgeRefusedUpload(*this, trace, exchange, attributes);
    if (exchange.Response().IsEmpty())
        return Result::InvalidServerResponse;
    exchange.LogReply();
    trace.Info("File uploaded successfully: %S", localPath);
    return TakeUploadedItem(trace, exchange, attributes);
}
