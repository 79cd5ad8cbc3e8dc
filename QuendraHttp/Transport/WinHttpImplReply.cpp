#include "Transport/FileHandle.h"
#include "Transport/IsSignalled.h"
#include "Transport/WinHttpImplRequest.h"
#include "Wiping.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <vector>

namespace
{

constexpr DWORD kMaximumPiece = 0x500000;

// What the trace shows of a Location header: scheme, server and port. The rest may contain secrets.
std::wstring OriginOf(std::wstring_view location)
{
    const auto slashes = std::min(location.find(L"//"), location.size());
    const auto scheme = location.substr(0, slashes);
    const bool isRelative = !scheme.empty() && (scheme.back() != L':' || scheme.find_first_of(L"/?#") != std::wstring_view::npos);
    if (isRelative || slashes == location.size())
        return L"another path of its own";
    auto server = location.substr(slashes + 2);
    server = server.substr(0, server.find_first_of(L"/\\?#"));
    server.remove_prefix(server.rfind(L'@') + 1);
    return std::wstring(scheme) + L"//" + std::wstring(server);
}

// Grows a block like realloc. Where that moves a block, it leaves the old bytes behind: among them a login's token, which is in the first
// piece. Larger blocks are no login's, and to copy them for each piece would take long.
char* Grow(char* block, std::size_t length, std::size_t size)
{
    // NOLINTBEGIN(cppcoreguidelines-no-malloc): the caller frees it
    constexpr std::size_t kLargestOfLogins = 64 * 1024;
    if (length == 0 || length > kLargestOfLogins)
        return static_cast<char*>(std::realloc(block, size));
    auto* const grown = static_cast<char*>(std::malloc(size));
    if (grown != nullptr)
    {
        std::memcpy(grown, block, length);
        WipeMemory(block, length);
        std::free(block);
    }
    return grown;
    // NOLINTEND(cppcoreguidelines-no-malloc)
}

} // namespace

ResultCode WinHttpRequest::ReceiveStatusText(const FunctionTraceScope& trace, ToDebugger toDebugger, std::wstring& status,
                                             DWORD& statusBytes)
{
    const auto tellDebugger = [toDebugger](const wchar_t* step, DWORD error) {
        if (toDebugger == ToDebugger::Yes)
            OutputDebugStringW((std::wstring(L"ERROR: ") + step + L"() failed, error code: " + std::to_wstring(error) + L"\n").c_str());
    };

    const BOOL received = WinHttpReceiveResponse(Handle(), nullptr);
    const DWORD receiveError = GetLastError(); // before `Clear` may change it
    m_sentBody.Clear();
    if (!received)
    {
        tellDebugger(L"WinHttpReceiveResponse", receiveError);
        trace.Error("WinHttpReceiveResponse failed, error code: %d", receiveError);
        return receiveError;
    }

    statusBytes = 0;
    SetLastError(ERROR_SUCCESS);
    WinHttpQueryHeaders(Handle(), WINHTTP_QUERY_STATUS_CODE, WINHTTP_HEADER_NAME_BY_INDEX, nullptr, &statusBytes, WINHTTP_NO_HEADER_INDEX);
    if (const DWORD error = GetLastError(); error != ERROR_INSUFFICIENT_BUFFER)
    {
        tellDebugger(L"WinHttpQueryHeaders", error);
        trace.Error("WinHttpQueryHeaders failed, error code: %d", error);
        return error;
    }

    status.assign(statusBytes / sizeof(wchar_t) + 1, L'\0');
    DWORD size = statusBytes;
    if (!WinHttpQueryHeaders(Handle(), WINHTTP_QUERY_STATUS_CODE, WINHTTP_HEADER_NAME_BY_INDEX, status.data(), &size,
                             WINHTTP_NO_HEADER_INDEX))
        return TraceLastError(trace, "WinHttpQueryHeaders failed, error code: %d");
    trace.Info("The server answered with HTTP %S", status.c_str());
    if (status.front() == L'3')
        TraceRedirect(trace);
    return Result::Success;
}

void WinHttpRequest::TraceRedirect(const FunctionTraceScope& trace) const
{
    if (!trace.IsEnabled(EVT_WARNING))
        return;
    const LastErrorKeeper keeper;
    DWORD size = 0;
    WinHttpQueryHeaders(Handle(), WINHTTP_QUERY_LOCATION, WINHTTP_HEADER_NAME_BY_INDEX, nullptr, &size, WINHTTP_NO_HEADER_INDEX);
    std::wstring location(size / sizeof(wchar_t) + 1, L'\0');
    const ScopedWipe wipe(location);
    if (WinHttpQueryHeaders(Handle(), WINHTTP_QUERY_LOCATION, WINHTTP_HEADER_NAME_BY_INDEX, location.data(), &size,
                            WINHTTP_NO_HEADER_INDEX))
        trace.Warning("The server redirects to %S. Redirects are not followed.", OriginOf(location.c_str()));
}

ResultCode WinHttpRequest::ReceiveResponse(ResponseBuffer& response)
{
    const FunctionTraceScope trace("WinHttpRequest::ReceiveResponse", Unit::WinHttpImpl);
    std::wstring status;
    DWORD statusBytes = 0;
    if (const ResultCode failed = ReceiveStatusText(trace, ToDebugger::No, status, statusBytes))
        return failed;
    m_httpStatus = static_cast<std::uint32_t>(std::wcstol(status.c_str(), nullptr, 10));
    return ReadResponse(response);
}

ResultCode WinHttpRequest::ReadResponse(ResponseBuffer& response)
{
    const FunctionTraceScope trace("WinHttpRequest::ReadResponse", Unit::WinHttpImpl);
    response = {};
    for (;;)
    {
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(Handle(), &available))
        {
            // The bytes read so far count as the reply: callers check the status and the content.
            trace.Error("WinHttpQueryDataAvailable failed, error code: %d", GetLastError());
            return Result::Success;
        }
        if (available > kMaximumPiece)
            return Result::InsufficientBuffer;
        if (available == 0)
        {
            trace.Info("No additional data available.");
            return Result::Success;
        }

        char* const grown =
            Grow(response.data, static_cast<std::size_t>(response.length), static_cast<std::size_t>(response.length + available + 1));
        if (grown == nullptr)
        {
            std::free(response.data); // NOLINT(cppcoreguidelines-no-malloc)
            response = {};
            trace.Error("Failed to allocate memory for response");
            return Result::NotEnoughMemory;
        }
        response.data = grown;

        // The length grows by the size that WinHttpQueryDataAvailable gave, even after a short read: zero the rest, so that no old heap
        // data is exposed.
        char* const piece = response.data + response.length;
        std::memset(piece, 0, available);
        DWORD read = 0;
        if (WinHttpReadData(Handle(), piece, available, &read))
            response.length += available;
        else
            trace.Error("WinHttpReadData failed, error code: %d", GetLastError());
        response.data[response.length] = '\0';
        if (read == 0)
            return Result::Success;
    }
}

bool WinHttpRequest::AnnouncedLength(std::uint64_t& length) const
{
    const auto hasHeader = [this](DWORD header, wchar_t* text, DWORD size) {
        return WinHttpQueryHeaders(Handle(), header, WINHTTP_HEADER_NAME_BY_INDEX, text, &size, WINHTTP_NO_HEADER_INDEX) != FALSE;
    };
    wchar_t text[32] = {};
    // A transfer coding overrides Content-Length (RFC 9112, 6.3).
    if (hasHeader(WINHTTP_QUERY_TRANSFER_ENCODING, text, sizeof text) || !hasHeader(WINHTTP_QUERY_CONTENT_LENGTH, text, sizeof text))
        return false;
    length = std::wcstoull(text, nullptr, 10);
    return true;
}

ResultCode WinHttpRequest::GetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                       const std::shared_ptr<IProgressCallback>& progress, std::uint32_t offsetLow,
                                       std::uint32_t offsetHigh)
{
    const FunctionTraceScope trace("WinHttpRequest::GetResponse", Unit::WinHttpImpl);
    std::wstring status;
    DWORD statusBytes = 0;
    if (const ResultCode failed = ReceiveStatusText(trace, ToDebugger::Yes, status, statusBytes))
        return failed;
    if (progress)
        progress->OnStatusSize(statusBytes);
    m_httpStatus = static_cast<std::uint32_t>(std::wcstol(status.c_str(), nullptr, 10));
    if (m_httpStatus != HTTP_STATUS_OK)
        return Result::RefusalBase + m_httpStatus;

    ResultCode result = Result::Success;
    // Only the low half decides: an offset that is a multiple of 4 GiB truncates the file. This is part of the interface.
    const bool resumes = offsetLow != 0;
    const FileHandle file(path, GENERIC_WRITE, 0, resumes ? OPEN_EXISTING : CREATE_ALWAYS);
    const std::uint64_t offset = (std::uint64_t{offsetHigh} << 32) | offsetLow;
    if (!file.IsOpen())
        result = TraceLastError(trace, "CreateFile failed, error code: %d");
    else if (resumes && !file.MoveTo(static_cast<std::int64_t>(offset)))
        result = TraceLastError(trace, "SetFilePointer failed, error code: %d");
    else
    {
        bool cancelled = false;
        result = StreamIntoFile(trace, file, cancelEvent, progress.get(), cancelled);
        trace.Info("Finished reading data");
        if (cancelled || IsSignalled(cancelEvent))
            result = Result::Cancelled;
    }
    trace.Info("Returning [%d]", result);
    return result;
}

ResultCode WinHttpRequest::StreamIntoFile(const FunctionTraceScope& trace, const FileHandle& file, const CancelEvent* cancelEvent,
                                          IProgressCallback* progress, bool& cancelled)
{
    std::uint64_t announced = 0;
    const bool isAnnounced = AnnouncedLength(announced);
    std::uint64_t total = 0;
    std::vector<char> block;
    DWORD read = 0;
    do
    {
        DWORD available = 0;
        // Clear the last error, so that an error from an earlier call is not reported for this transfer.
        SetLastError(ERROR_SUCCESS);
        if (!WinHttpQueryDataAvailable(Handle(), &available))
            return TraceLastError(trace, "WinHttpQueryDataAvailable failed, error code: %d");
        if (available == 0)
        {
            const DWORD error = GetLastError();
            trace.Info("No bytes to read [%d]", error);
            if (error != ERROR_SUCCESS)
                return error;
            break;
        }

        if (block.size() < available)
            block.resize(available);
        if (!WinHttpReadData(Handle(), block.data(), available, &read))
            return TraceLastError(trace, "WinHttpReadData failed, error code: %d");
        DWORD written = 0;
        SetLastError(ERROR_SUCCESS);
        if (!WriteFile(file.Get(), block.data(), read, &written, nullptr) || written < read)
        {
            const DWORD lastError = GetLastError();
            const DWORD error = lastError != ERROR_SUCCESS ? lastError : ERROR_DISK_FULL;
            trace.Error("WriteFile failed, error code: %d", error);
            return error;
        }
        total += written;
        if (progress != nullptr)
            progress->OnBlock(written, total);
        // Test the event once per block: an auto-reset event signals only once.
        cancelled = IsSignalled(cancelEvent);
    } while (read != 0 && !cancelled);

    if (isAnnounced && total < announced && !cancelled)
    {
        trace.Error("The body ended after %lld of %lld bytes, error code: %d", total, announced, Result::ConnectionBroken);
        return Result::ConnectionBroken;
    }
    return Result::Success;
}
