// Chunked uploads that can be resumed. The client keeps no state of them; the caller drives the protocol:
//
//     ResumableUpload(begin) --> ResumableUpload ... --> ResumableUpload(last chunk)            the file is there
//            |    ^                     |
//            |    `-- offset -- GetResumableUploadMetadata <-- interrupted
//            `--> CancelUpload (gone)          `--> CompleteUpload (finished under another path)

#include "ApiPath.h"
#include "Attributes.h"
#include "Exchange.h"
#include "FileHandle.h"
#include "JsonLibrary.h"
#include "Operation.h"
#include "PathSplit.h"
#include "Settings.h"
#include "UploadReply.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace
{

// Hours that the server keeps a partial upload; 0 for no limit of ours.
Settings::OncePerProcessNumber g_uploadExpiry(Tuning::kUploadExpiry);
constexpr std::int64_t kTicksPerHour = 36000000000;

// Here alone a positive result of the connection counts as success.
constexpr InitialiseRule kChunkConnectionRule{"WinHttpConnection failed to initialise, error code: %d", true, false};
constexpr InitialiseRule kMetadataConnectionRule{"WinHttpConnection failed to initialise, error code: 0x%08x"};

std::wstring TextOf(const GUID& uploadId)
{
    std::array<wchar_t, 39> text{};
    StringFromGUID2(uploadId, text.data(), static_cast<int>(text.size()));
    std::wstring identifier(text.data());
    return identifier.substr(1, identifier.size() - 2); // without the braces
}

// Connects and opens a request for a partial upload; tells its endpoint as the operation words it.
ResultCode OpenUpload(const FunctionTraceScope& trace, Exchange& exchange, const wchar_t* verb, const std::wstring& serverPath,
                      const std::wstring& identifier, const TraceFormat<std::wstring>& endpoint,
                      const InitialiseRule& connectionRule = kConnectionRule)
{
    if (const ResultCode failed = exchange.Connect(connectionRule))
        return failed;
    const std::wstring url = exchange.ApiBasePath() + L"/resume/upload" + EncodedPath(serverPath) + L"?resume_id=" + identifier;
    trace.Info(endpoint, url);
    return exchange.OpenRequest(verb, url);
}

CAttributeTime Expiry(std::uint32_t hours)
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
    // An expiry beyond the scale ends with the scale; its last value is the one that means no time.
    const std::int64_t room = (CAttributeTime::kUnset - 1 - static_cast<std::int64_t>(ticks)) / kTicksPerHour;
    return CAttributeTime(static_cast<std::int64_t>(ticks) + std::min<std::int64_t>(hours, room) * kTicksPerHour);
}

struct Chunk
{
    std::int64_t offset;
    std::int64_t length;
    bool begins;
};

// A chunk's metadata travels in headers. A header that cannot be added ends the operation: without it the server would store the
// chunk elsewhere.
ResultCode AddChunkHeaders(const FunctionTraceScope& trace, const Exchange& exchange, const IServerAttributes& attributes,
                           const Chunk& chunk)
{
    ResultCode result = Result::Success;
    const auto add = [&](const wchar_t* name, const std::wstring& value) {
        if (result == Result::Success)
            result = exchange.Check("AddHeader failed, error code: %d", exchange.Request().AddHeader(name, value));
    };
    add(L"qd_file_size", attributes.GetSizeString());
    add(L"qd_file_creation_time", attributes.GetCreationTime().ToString());
    add(L"qd_file_modification_time", attributes.GetLastWriteTime().ToString());
    add(L"qd_attributes", attributes.GetAttributesString());
    if (const std::string revision = attributes.GetRevision(); !revision.empty())
        add(L"qd_revision", ToWide(revision));
    add(L"qd_offset", std::to_wstring(chunk.offset));
    add(L"qd_block_size", std::to_wstring(chunk.length));
    if (chunk.begins)
    {
        trace.Info("Sending begin marker");
        add(L"qd_start", L"true");
    }
    if (chunk.length == attributes.GetSize() - chunk.offset)
    {
        trace.Info("Sending end marker");
        add(L"qd_finish", L"true");
    }
    if (const auto hours = static_cast<std::uint32_t>(g_uploadExpiry.Get()); hours != 0)
    {
        const std::wstring expiry = Expiry(hours).ToString();
        trace.Info("Sending expiry: %S", expiry);
        add(L"qd_expiry", expiry);
    }
    return result;
}

// Ends the multipart body and receives the answer.
ResultCode FinishBody(Exchange& exchange)
{
    IWinHttpRequest& request = exchange.Request();
    if (const ResultCode failed = exchange.Check("EndMultipart failed, error code: %d", request.EndMultipart()))
        return failed;
    if (const ResultCode failed = exchange.Check("httpRequest->SendPostData, error code: %d", request.SendPostData()))
        return failed;
    return exchange.Check("ReceiveResponse failed, error code: %d", request.ReceiveResponse(exchange.Response()));
}

ResultCode StartBody(const Exchange& exchange, std::uint64_t partBytes)
{
    IWinHttpRequest& request = exchange.Request();
    if (const ResultCode failed = exchange.Check("AddMultipartHeaders failed, error code: %d", request.AddMultipartHeaders(true)))
        return failed;
    return exchange.Check("StartRequest failed, error code: %d", request.StartRequest(partBytes + request.GetEndMultipartLength()));
}

// Whether a chunk passes the end of the file. None of them is negative, and no sum is made that could overflow.
bool PassesEnd(std::int64_t offset, std::int64_t length, std::int64_t size)
{
    return offset > size || length > size - offset;
}

// A transport sends what the file has of a range. The headers have announced the whole of it: less would be stored as if it were that.
bool IsShort(const std::wstring& localPath, const Chunk& chunk)
{
    const FileHandle file(localPath, GENERIC_READ, kShareAll, OPEN_EXISTING);
    return file.IsOpen() && chunk.length > 0 && PassesEnd(chunk.offset, chunk.length, file.Size());
}

ResultCode SendChunk(Exchange& exchange, const std::wstring& localPath, const std::wstring& serverPath, const Chunk& chunk,
                     const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress)
{
    constexpr TraceFormat<ResultCode> fileFailed{"SendMultipartFile failed, error code: %d"};
    IWinHttpRequest& request = exchange.Request();
    const std::wstring fileName = LeafName(serverPath);
    std::uint64_t partBytes = 0;
    if (const ResultCode failed = exchange.Check(fileFailed, request.SendMultipartFile("file", localPath, fileName, &cancelEvent,
                                                                                       &chunk.offset, &chunk.length, progress, &partBytes)))
        return failed;
    if (IsShort(localPath, chunk))
        return exchange.Check(fileFailed, ResultCode{ERROR_HANDLE_EOF});
    if (const ResultCode failed = StartBody(exchange, partBytes))
        return failed;
    if (const ResultCode failed = exchange.Check(fileFailed, request.SendMultipartFile("file", localPath, fileName, &cancelEvent,
                                                                                       &chunk.offset, &chunk.length, progress, nullptr)))
        return failed;
    return FinishBody(exchange);
}

} // namespace

ResultCode CNativeHttp::ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                                        std::shared_ptr<IServerAttributes>& attributes, const GUID& uploadId, const std::int64_t* offset,
                                        std::int64_t* length, std::int32_t beginFlag, const CancelEvent& cancelEvent,
                                        const std::shared_ptr<IProgressCallback>& progress)
{
    return RunOperation("CNativeHttp::ResumableUpload", [&, sent = attributes, progress](const FunctionTraceScope& trace) -> ResultCode {
        // A size below zero can come from a server; there is no chunk of such a file.
        if (!sent || offset == nullptr || length == nullptr || *offset < 0 || *length < 0 || sent->GetSize() < 0)
            return Result::InvalidParameter;
        const std::wstring identifier = TextOf(uploadId);
        trace.Info("Uploading %lld-byte chunk of [%S] from %lld with GUID [%S]", *length, localPath, *offset, identifier);
        if (const std::int64_t size = sent->GetSize(); PassesEnd(*offset, *length, size))
        {
            trace.Error("Past end of file: %lld + %lld > %lld", *offset, *length, size);
            *length = std::max<std::int64_t>(size - *offset, 0);
            trace.Info("New length: %lld", *length);
        }
        const Chunk chunk{*offset, *length, beginFlag != 0};

        Exchange exchange(*this, trace);
        if (const ResultCode failed = OpenUpload(trace, exchange, L"POST", serverPath, identifier, "Endpoint: [%S]", kChunkConnectionRule))
            return failed;
        exchange.Track(serverPath);
        if (const ResultCode cancelled = exchange.CheckCancelled(cancelEvent, "Upload cancelled"))
            return cancelled;
        if (const ResultCode failed = AddChunkHeaders(trace, exchange, *sent, chunk))
            return failed;
        if (const ResultCode failed = SendChunk(exchange, localPath, serverPath, chunk, cancelEvent, progress))
            return failed;
        if (IsSignalled(&cancelEvent))
            return Result::Cancelled;

        if (exchange.Status() != 200)
        {
            if (!exchange.Response().IsEmpty())
                return JudgeRefusedUpload(*this, trace, exchange, attributes);
            trace.Error(kRefused, exchange.Status());
            return Result::InvalidServerResponse;
        }
        trace.Info("Chunk uploaded successfully: %S", localPath);
        if (const ResultCode failed = TakeUploadedItem(trace, exchange, attributes))
            return failed;
        trace.Info("Extracted attributes from upload reply");
        return Result::Success;
    });
}

ResultCode CNativeHttp::CancelUpload(const std::wstring& serverPath, const GUID& uploadId)
{
    return RunOperation("CNativeHttp::CancelUpload", [&](const FunctionTraceScope& trace) -> ResultCode {
        const std::wstring identifier = TextOf(uploadId);
        trace.Info("Cancelling upload to [%S], guid:%S", serverPath, identifier);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = OpenUpload(trace, exchange, L"DELETE", serverPath, identifier, "Endpoint [%S]"))
            return failed;
        if (const ResultCode failed = exchange.Send())
            return failed;
        exchange.LogReply();
        if (const ResultCode refused = exchange.JudgeWithTokenCheck())
            return refused;
        trace.Info("Successfully cancelled upload to [%S]", serverPath);
        return Result::Success;
    });
}

ResultCode CNativeHttp::CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath, const GUID& uploadId,
                                       std::shared_ptr<IServerAttributes>& attributes)
{
    return RunOperation("CNativeHttp::CompleteUpload", [&](const FunctionTraceScope& trace) -> ResultCode {
        const std::wstring identifier = TextOf(uploadId);
        trace.Info("Completing upload of [%S] to [%S] with GUID [%S]", serverPath, newServerPath, identifier);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = OpenUpload(trace, exchange, L"POST", serverPath, identifier, "Endpoint: [%S]"))
            return failed;
        constexpr TraceFormat<ResultCode> headerFailed{"AddHeader failed, error code: %d"};
        if (const ResultCode failed = exchange.Check(headerFailed, exchange.Request().AddHeader(L"qd_finish", L"true")))
            return failed;
        if (const ResultCode failed = exchange.Check(headerFailed, exchange.Request().AddHeader(L"qd_new_path", newServerPath)))
            return failed;
        if (const ResultCode failed = StartBody(exchange, 0))
            return failed;
        if (const ResultCode failed = FinishBody(exchange))
            return failed;
        exchange.LogReply();
        if (const ResultCode refused = exchange.JudgeWithTokenCheck())
            return refused;
        trace.Info("Chunk completed successfully");
        if (const ResultCode failed = TakeUploadedItem(trace, exchange, attributes))
            return failed;
        trace.Info("Extracted attributes from upload reply");
        return Result::Success;
    });
}

ResultCode CNativeHttp::GetResumableUploadMetadata(const std::wstring& serverPath, const GUID& uploadId, std::int64_t* offset,
                                                   std::uint32_t* locked)
{
    return RunOperation("CNativeHttp::GetResumableUploadMetadata", [&](const FunctionTraceScope& trace) -> ResultCode {
        if (offset == nullptr || locked == nullptr)
            return Result::InvalidParameter;
        const std::wstring identifier = TextOf(uploadId);
        trace.Info("Metadata request for [%S] Guid:[%S]", serverPath, identifier);
        Exchange exchange(*this, trace);
        if (const ResultCode failed = OpenUpload(trace, exchange, L"GET", serverPath, identifier, "Endpoint: %S", kMetadataConnectionRule))
            return failed;
        if (const ResultCode failed = exchange.Send("GetResponse failed, error code: 0x%x"))
            return failed;
        exchange.LogReply();
        if (const ResultCode refused = exchange.JudgeWithTokenCheck())
            return refused;
        if (const ResultCode failed = exchange.RequireBody())
            return failed;
        return GetMetaDataFromResponse(exchange.Response(), offset, locked);
    });
}

ResultCode CNativeHttp::GetMetaDataFromResponse(const ResponseBuffer& response, std::int64_t* offset, std::uint32_t* locked)
{
    const FunctionTraceScope trace("CNativeHttp::GetMetaDataFromResponse", Unit::NativeHttp);
    // A reply that was cut off must not pass for one that has nothing to tell: its caller would resume at a stale offset.
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
        // By contract only a text counts: a JSON boolean leaves the flag as the caller set it.
        if (const Json::Value* const isLocked = FindMember(root, "is_locked"); isLocked != nullptr && isLocked->isString())
        {
            *locked = isLocked->asString() == "true" ? 1 : 0;
            trace.Info("Got locked %d", *locked);
        }
    });
    return result;
}
