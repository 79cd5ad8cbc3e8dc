// Multipart bodies (RFC 7578), streamed: form fields and the closing boundary are collected in the body buffer, a file's bytes go
// straight from the disk to the connection. One body, G being the boundary:
//
//     --G\r\n Content-Disposition: form-data; name="FIELD"\r\n\r\n VALUE \r\n                          for each field
//     --G\r\n Content-Disposition: form-data; name="file"; filename="NAME"\r\n
//             Content-Type: application/octet-stream\r\n\r\n BYTES \r\n                                the file part
//     --G--\r\n                                                                                        the end

#include "TextConversion.h"
#include "Transport/FileHandle.h"
#include "Transport/IsSignalled.h"
#include "Transport/WinHttpImplRequest.h"
#include "UrlEncoding.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

namespace
{

constexpr std::size_t kMaximumPartHeader = 8192;
constexpr std::size_t kBlockBytes = 16384;
constexpr std::string_view kFilePartType = "Content-Type: application/octet-stream\r\n\r\n";
constexpr std::string_view kLineEnd = "\r\n";

bool Write(HINTERNET request, std::string_view bytes, DWORD& written)
{
    written = 0;
    return WinHttpWriteData(request, bytes.data(), static_cast<DWORD>(bytes.size()), &written) != FALSE;
}

// Ignores a failed write: a later write or the reply fails too.
void WriteIgnoringFailure(HINTERNET request, std::string_view bytes)
{
    DWORD written = 0;
    Write(request, bytes, written);
}

// The part of [offset, offset + length) that lies in the file; subtracts, because a sum could overflow.
std::int64_t LengthInFile(std::int64_t fileSize, std::int64_t offset, std::int64_t length)
{
    return std::clamp<std::int64_t>(length, 0, std::max<std::int64_t>(fileSize - std::max<std::int64_t>(offset, 0), 0));
}

ResultCode RefusePart(const FunctionTraceScope& trace, const char* name)
{
    trace.Error("The part header of [%s] does not fit %d bytes", name, static_cast<int>(kMaximumPartHeader));
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return Result::InsufficientBuffer;
}

} // namespace

std::wstring WinHttpRequest::GenerateRandomValue()
{
    const FunctionTraceScope trace("WinHttpRequest::GenerateRandomValue", Unit::WinHttpImpl);
    GUID guid{};
    std::array<wchar_t, 260> text{};
    if (CoCreateGuid(&guid) < 0 || StringFromGUID2(guid, text.data(), static_cast<int>(text.size())) == 0)
    {
        trace.Error("Failed to generate GUID.");
        return {};
    }
    return text.data();
}

std::wstring WinHttpRequest::GetMarker()
{
    const FunctionTraceScope trace("WinHttpRequest::GetMarker", Unit::WinHttpImpl);
    static const std::wstring marker = L"QD_MARK--" + GenerateRandomValue() + L"--QD_MARK";
    return marker;
}

ResultCode WinHttpRequest::AddMultipartHeaders(bool acceptJson)
{
    const FunctionTraceScope trace("WinHttpRequest::AddMultipartHeaders", Unit::WinHttpImpl);
    if (const ResultCode failed =
            AddHeaderText(acceptJson ? L"Accept: application/json" : L"Accept: application/octet-stream", kAddAndCoalesce))
        return failed;
    // The header ends with a single line feed, which WinHTTP removes.
    return AddHeaderText(L"Content-Type: multipart/form-data; boundary=\"" + m_boundary + L"\"\n", kReplaceOrAdd);
}

ResultCode WinHttpRequest::AddMultipartFormData(const wchar_t* name, const wchar_t* value)
{
    const FunctionTraceScope trace("WinHttpRequest::AddMultipartFormData", Unit::WinHttpImpl);
    return AddMultipartFormData(ToNarrow(name, NarrowEncoding::ThreadAnsi).c_str(), ToNarrow(value, NarrowEncoding::ThreadAnsi).c_str());
}

ResultCode WinHttpRequest::AddMultipartFormData(const char* name, const char* value)
{
    const FunctionTraceScope trace("WinHttpRequest::AddMultipartFormData", Unit::WinHttpImpl);
    const std::string head = std::string("Content-Disposition: form-data; name=\"") + name + "\"\r\n\r\n";
    if (head.size() > kMaximumPartHeader)
        return RefusePart(trace, name);

    std::string part = "--" + ToNarrow(m_boundary);
    part.append(kLineEnd).append(head).append(value).append(kLineEnd);
    m_body.Append(part);
    return Result::Success;
}

ResultCode WinHttpRequest::EndMultipart()
{
    const FunctionTraceScope trace("WinHttpRequest::EndMultipart", Unit::WinHttpImpl);
    m_body.Append("--" + ToNarrow(m_boundary) + "--\r\n");
    return Result::Success;
}

std::uint32_t WinHttpRequest::GetEndMultipartLength()
{
    return static_cast<std::uint32_t>(m_boundary.size() + std::string_view("----\r\n").size());
}

ResultCode WinHttpRequest::SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                                             std::uint64_t* sizeOut)
{
    const FunctionTraceScope trace("WinHttpRequest::SendMultipartFile", Unit::WinHttpImpl);
    // The range is cut at the end of the file.
    const std::int64_t offset = 0;
    const std::int64_t length = std::numeric_limits<std::int64_t>::max();
    return SendMultipartFile(fieldName, path, fileName, cancelEvent, &offset, &length, progress, sizeOut);
}

ResultCode WinHttpRequest::SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::int64_t* offset, const std::int64_t* length,
                                             const std::shared_ptr<IProgressCallback>& progress, std::uint64_t* sizeOut)
{
    const FunctionTraceScope trace("WinHttpRequest::SendMultipartFile", Unit::WinHttpImpl);
    const std::string partHeader = std::string("Content-Disposition: form-data; name=\"") + fieldName + "\"; filename=\"" +
                                   EncodeUrl(fileName, UrlEncodingMode::Form) + "\"\r\n";
    if (partHeader.size() > kMaximumPartHeader)
        return RefusePart(trace, fieldName);
    const std::string boundaryLine = "--" + ToNarrow(m_boundary) + "\r\n";
    WatchEvent(cancelEvent);

    if (sizeOut != nullptr)
    {
        *sizeOut = partHeader.size() + kFilePartType.size() + boundaryLine.size();
    }
    else
    {
        WriteIgnoringFailure(Handle(), boundaryLine);
        WriteIgnoringFailure(Handle(), partHeader);
        WriteIgnoringFailure(Handle(), kFilePartType);
    }

    const FileHandle file(path, GENERIC_READ, kShareAll, OPEN_EXISTING);
    if (!file.IsOpen())
    {
        const DWORD error = GetLastError();
        if (IsSignalled(cancelEvent))
            return Result::Cancelled;
        trace.Error("CreateFile for path: %S failed, error code: %d", path, error);
        return error;
    }

    const std::optional<std::int64_t> size = file.Size();
    if (!size)
        return TraceLastError(trace, "GetFileSizeEx failed, error code: %d");
    const std::int64_t rangeLength = LengthInFile(*size, *offset, *length);
    const std::tuple range(path, *offset, *length);
    if (sizeOut != nullptr)
    {
        m_measuredLengths[range] = rangeLength;
        *sizeOut += static_cast<std::uint64_t>(rangeLength) + kLineEnd.size();
        trace.Info("Size request for [%S], returned: %I64u bytes", path, *sizeOut);
        return Result::Success;
    }

    // Send exactly the announced length: ignore what was appended since, and fail if the file has shrunk.
    const auto measured = m_measuredLengths.find(range);
    const std::int64_t announced = measured != m_measuredLengths.end() ? measured->second : rangeLength;
    bool cancelled = false;
    const ResultCode result = SendFileRange(trace, file, *offset, announced, cancelEvent, progress.get(), cancelled);
    WriteIgnoringFailure(Handle(), kLineEnd);
    trace.Info("Data request for '%S'", path);
    return cancelled || IsSignalled(cancelEvent) ? Result::Cancelled : result;
}

ResultCode WinHttpRequest::SendFileRange(const FunctionTraceScope& trace, const FileHandle& file, std::int64_t offset, std::int64_t length,
                                         const CancelEvent* cancelEvent, IProgressCallback* progress, bool& cancelled)
{
    // An empty range may start beyond the end of the file.
    if (length > 0 && !file.MoveTo(offset))
        return TraceLastError(trace, "SetFilePointerEx failed, error code: %d");
    std::array<char, kBlockBytes> block; // NOLINT(cppcoreguidelines-pro-type-member-init): only bytes that were read are used
    for (std::int64_t remaining = length; remaining > 0 && !cancelled;)
    {
        DWORD read = 0;
        const auto wanted = static_cast<DWORD>(std::min<std::int64_t>(remaining, kBlockBytes));
        const BOOL isRead = ReadFile(file.Get(), block.data(), wanted, &read, nullptr);
        if (!isRead || read == 0)
        {
            const DWORD error = isRead ? static_cast<DWORD>(ERROR_HANDLE_EOF) : GetLastError();
            trace.Error("ReadFile failed with %lld of %lld bytes left, error code: %d", remaining, length, error);
            return error;
        }
        DWORD written = 0;
        if (!Write(Handle(), {block.data(), read}, written))
            return TraceLastError(trace, "WinHttpWriteData failed, error=%d");
        remaining -= written;
        if (progress != nullptr)
            progress->OnBlock(written, static_cast<std::uint64_t>(offset + length - remaining));
        cancelled = IsSignalled(cancelEvent);
        if (written == 0)
            break;
    }
    return Result::Success;
}
