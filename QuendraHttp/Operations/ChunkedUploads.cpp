// Chunked uploads that can be resumed. The client keeps no state; the caller makes the requests in this order:
//
//     ResumableUpload(begin) --> ResumableUpload ... --> ResumableUpload(last chunk)            the file is complete
//            |    ^                     |
//            |    `-- offset -- GetResumableUploadMetadata <-- interrupted
//            `--> CancelUpload (gone)          `--> CompleteUpload (finished under another path)

#include "Attributes.h"
#include "Identifier.h"
#include "Replies/JsonReplies.h"
#include "RequestCycle/Exchange.h"
#include "ServerPath.h"
#include "Settings.h"
#include "TextConversion.h"

#include "Platform/Platform.h"

#include <algorithm>

namespace
{

// Hours that the server keeps a partial upload; 0 to send no limit.
Settings::OncePerProcessNumber g_uploadExpiry(Tuning::kUploadExpiry);
constexpr std::int64_t kTicksPerHour = 36000000000;

constexpr MultipartSteps kChunkSteps{.post = "httpRequest->SendPostData, error code: %d"};

// The path of the requests of all four operations.
std::wstring ResumePath(const Exchange& exchange, const std::wstring& serverPath, const std::wstring& identifier)
{
    return exchange.ApiPath(L"/resume/upload", serverPath) + L"?resume_id=" + identifier;
}

CAttributeTime Expiry(std::uint32_t hours)
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
    // Clamp the expiry to the largest valid time; the value above it means no time.
    const std::int64_t room = (CAttributeTime::kUnset - 1 - static_cast<std::int64_t>(ticks)) / kTicksPerHour;
    return CAttributeTime(static_cast<std::int64_t>(ticks) + std::min<std::int64_t>(hours, room) * kTicksPerHour);
}

struct Chunk
{
    std::int64_t offset;
    std::int64_t length;
    bool begins;
};

// Sends a chunk's metadata as headers. A header that cannot be added ends the operation: without it the server would store the chunk in the
// wrong place.
void AddChunkHeaders(Exchange& exchange, const IServerAttributes& item, const Chunk& chunk)
{
    exchange.Header(L"qd_file_size", item.GetSizeString())
        .Header(L"qd_file_creation_time", item.GetCreationTime().ToString())
        .Header(L"qd_file_modification_time", item.GetLastWriteTime().ToString())
        .Header(L"qd_attributes", item.GetAttributesString());
    if (const std::string revision = item.GetRevision(); !revision.empty())
        exchange.Header(L"qd_revision", ToWide(revision));
    exchange.Header(L"qd_offset", std::to_wstring(chunk.offset)).Header(L"qd_block_size", std::to_wstring(chunk.length));
    if (chunk.begins)
        exchange.Info("Sending begin marker").Header(L"qd_start", L"true");
    if (chunk.length == item.GetSize() - chunk.offset)
        exchange.Info("Sending end marker").Header(L"qd_finish", L"true");
    if (const auto hours = static_cast<std::uint32_t>(g_uploadExpiry.Get()); hours != 0)
    {
        const std::wstring expiry = Expiry(hours).ToString();
        exchange.Info("Sending expiry: %S", expiry).Header(L"qd_expiry", expiry);
    }
}

// Whether a chunk extends past the end of the file. No argument is negative. Subtracts, because a sum could overflow.
bool PassesEnd(std::int64_t offset, std::int64_t length, std::int64_t size)
{
    return offset > size || length > size - offset;
}

} // namespace

ResultCode CNativeHttp::ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                                        std::shared_ptr<IServerAttributes>& attributes, const Quendra::UploadId& uploadId,
                                        const std::int64_t* offset, std::int64_t* length, std::int32_t beginFlag,
                                        const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress)
{
    return RunExchange(*this, "CNativeHttp::ResumableUpload", [&, sent = attributes, progress](Exchange& exchange) {
        // The server may have sent a negative size; such a file has no chunks.
        if (!sent || offset == nullptr || length == nullptr || *offset < 0 || *length < 0 || sent->GetSize() < 0)
            return Result::InvalidParameter;
        const std::wstring identifier = IdentifierText(uploadId);
        exchange.Info("Uploading %lld-byte chunk of [%S] from %lld with GUID [%S]", *length, localPath, *offset, identifier);
        if (const std::int64_t size = sent->GetSize(); PassesEnd(*offset, *length, size))
        {
            exchange.Trace().Error("Past end of file: %lld + %lld > %lld", *offset, *length, size);
            *length = std::max<std::int64_t>(size - *offset, 0);
            exchange.Info("New length: %lld", *length);
        }
        const Chunk chunk{*offset, *length, beginFlag != 0};
        const FilePart part{.localPath = localPath,
                            .name = LeafName(serverPath),
                            .cancelEvent = cancelEvent,
                            .progress = progress,
                            .offset = &chunk.offset,
                            .length = &chunk.length};
        exchange.Open(L"POST", ResumePath(exchange, serverPath, identifier), {.onlyNegativeFails = true}, {.path = "Endpoint: [%S]"})
            .Track(serverPath)
            .StopIfCancelled(&cancelEvent, "Upload cancelled");
        AddChunkHeaders(exchange, *sent, chunk);
        return exchange.SendMultipart(kChunkSteps, &part)
            .Receive()
            .StopIfCancelled(&cancelEvent)
            .Judge(Judgements::kResumableUpload)
            .TakeItemOfConflict(attributes)
            .Info("Chunk uploaded successfully: %S", localPath)
            .TakeItem(kUploadedItem, attributes)
            .Outcome();
    });
}

ResultCode CNativeHttp::CancelUpload(const std::wstring& serverPath, const Quendra::UploadId& uploadId)
{
    return RunExchange(*this, "CNativeHttp::CancelUpload", [&](Exchange& exchange) {
        const std::wstring identifier = IdentifierText(uploadId);
        return exchange.Info("Cancelling upload to [%S], guid:%S", serverPath, identifier)
            .Open(L"DELETE", ResumePath(exchange, serverPath, identifier), {}, {.path = "Endpoint [%S]"})
            .Perform(Judgements::kCancelUpload)
            .Info("Successfully cancelled upload to [%S]", serverPath)
            .Outcome();
    });
}

ResultCode CNativeHttp::CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath, const Quendra::UploadId& uploadId,
                                       std::shared_ptr<IServerAttributes>& attributes)
{
    return RunExchange(*this, "CNativeHttp::CompleteUpload", [&](Exchange& exchange) {
        const std::wstring identifier = IdentifierText(uploadId);
        return exchange.Info("Completing upload of [%S] to [%S] with GUID [%S]", serverPath, newServerPath, identifier)
            .Open(L"POST", ResumePath(exchange, serverPath, identifier), {}, {.path = "Endpoint: [%S]"})
            .Header(L"qd_finish", L"true")
            .Header(L"qd_new_path", newServerPath)
            .SendMultipart(kChunkSteps, nullptr)
            .Receive()
            .Judge(Judgements::kCompleteUpload)
            .Info("Chunk completed successfully")
            .TakeItem(kUploadedItem, attributes)
            .Outcome();
    });
}

ResultCode CNativeHttp::GetResumableUploadMetadata(const std::wstring& serverPath, const Quendra::UploadId& uploadId, std::int64_t* offset,
                                                   std::uint32_t* locked)
{
    return RunExchange(*this, "CNativeHttp::GetResumableUploadMetadata", [&](Exchange& exchange) {
        if (offset == nullptr || locked == nullptr)
            return Result::InvalidParameter;
        const std::wstring identifier = IdentifierText(uploadId);
        return exchange.Info("Metadata request for [%S] Guid:[%S]", serverPath, identifier)
            .Open(L"GET", ResumePath(exchange, serverPath, identifier),
                  {.failed = "WinHttpConnection failed to initialise, error code: 0x%08x"}, {.path = "Endpoint: %S"})
            .Perform(Judgements::kGetResumableUploadMetadata)
            .Then([&] { return GetMetaDataFromResponse(exchange.Response(), offset, locked); });
    });
}
