#pragma once

/// @file
/// One HTTP request over WinHTTP. Opened, given headers and a collected body, sent, answered into memory or into a file, closed:
///
///     Initialise --> AddHeader* --> AppendFormData* --> GetResponse(memory)
///                                        |          `-> SendRequestGetResponse(file)
///                                        `-> StartRequest --> SendPostData/SendMultipartFile* --> ReceiveResponse(memory)
///                                                                                            `-> GetResponse(file)
///
/// Sending is in `WinHttpImplRequest.cpp`, replies in `WinHttpImplReply.cpp`, multipart bodies in `WinHttpImplMultipart.cpp`.

#include "Transport/BodyBuffer.h"
#include "Transport/WinHttpImpl.h"

#include <map>
#include <memory>
#include <string>
#include <tuple>

class FileHandle;

// Flags for adding headers.
inline constexpr DWORD kAddAndCoalesce = WINHTTP_ADDREQ_FLAG_ADD | WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA;
inline constexpr DWORD kReplaceOrAdd = WINHTTP_ADDREQ_FLAG_REPLACE | WINHTTP_ADDREQ_FLAG_ADD;
inline constexpr DWORD kCoalesceOnly = WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA;

/// Sends one request with a collected or streamed body; see the diagram above for the order of calls.
class WinHttpRequest : public WinHttpHandle, public IWinHttpRequest
{
public:
    /// @param session  kept alive by the request; its token becomes the request's cookie.
    explicit WinHttpRequest(std::shared_ptr<IWinHttpSession> session);

    ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>& connection,
                          const wchar_t* acceptType, std::uint32_t flags) override;
    ResultCode AddHeader(const std::wstring& name, const std::wstring& value) override;
    ResultCode StartRequest(std::uint64_t contentLength) override;
    ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) override;
    ResultCode SendPostData() override;

    ResultCode AddMultipartHeaders(bool acceptJson) override;
    ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                 const CancelEvent* cancelEvent, const std::int64_t* offset, const std::int64_t* length,
                                 const std::shared_ptr<IProgressCallback>& progress, std::uint64_t* sizeOut) override;
    ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                 const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                                 std::uint64_t* sizeOut) override;
    ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) override;
    ResultCode AddMultipartFormData(const char* name, const char* value) override;
    ResultCode EndMultipart() override;
    std::uint32_t GetEndMultipartLength() override;

    ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                           std::uint32_t offsetLow, std::uint32_t offsetHigh) override;
    ResultCode GetResponse(ResponseBuffer& response) override;
    ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                      const std::shared_ptr<IProgressCallback>& progress, bool acceptOctetStream, std::uint32_t offsetLow,
                                      std::uint32_t offsetHigh) override;
    std::uint32_t GetHTTPStatus() override { return m_httpStatus; }
    std::uint32_t GetPostDataLength() override { return m_body.Length(); }
    ResultCode ReceiveResponse(ResponseBuffer& response) override;
    ResultCode ReadResponse(ResponseBuffer& response) override;
    void Close() override { WinHttpHandle::Close(); }

    /// The text form of a fresh identifier, 38 characters with braces; empty on failure, which callers use unchanged.
    [[nodiscard]] static std::wstring GenerateRandomValue();

    /// "QD_MARK--{...}--QD_MARK", the same for the life of the process.
    [[nodiscard]] static std::wstring GetMarker();

private:
    enum class ToDebugger
    {
        No,
        Yes
    };

    ResultCode SendRequest();
    // On Linux, calls that wait for the network then end when the event is signalled. WinHTTP has no such option.
    void WatchEvent(const CancelEvent* cancelEvent) const noexcept;
    ResultCode AddHeaderText(const std::wstring& text, DWORD modifiers);
    ResultCode AddSessionCookie(const FunctionTraceScope& trace);
    ResultCode ReceiveStatusText(const FunctionTraceScope& trace, ToDebugger toDebugger, std::wstring& status, DWORD& statusBytes);
    void TraceRedirect(const FunctionTraceScope& trace) const;
    ResultCode StreamIntoFile(const FunctionTraceScope& trace, const FileHandle& file, const CancelEvent* cancelEvent,
                              IProgressCallback* progress, bool& cancelled);
    ResultCode SendFileRange(const FunctionTraceScope& trace, const FileHandle& file, std::int64_t offset, std::int64_t length,
                             const CancelEvent* cancelEvent, IProgressCallback* progress, bool& cancelled);
    [[nodiscard]] bool AnnouncedLength(std::uint64_t& length) const;

    const std::shared_ptr<IWinHttpSession> m_session;
    BodyBuffer m_body;
    BodyBuffer m_sentBody; // WinHTTP may read it, also to resend it on a new connection, until the reply arrives
    std::uint32_t m_httpStatus = 0;
    const std::wstring m_boundary;
    std::map<std::tuple<std::wstring, std::int64_t, std::int64_t>, std::int64_t>
        m_measuredLengths; // bytes by path, offset and length of the measuring call
};
