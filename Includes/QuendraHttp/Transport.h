#pragma once

/// @file
/// The transport below the library: sessions, connections and requests, and the factory that makes them. The library brings
/// its own over WinHTTP; a caller who hands another factory to `CreateInstanceWithFactory` replaces it whole.
///
/// The order of the virtual operations is part of the contract. Result codes are 0 or a platform error value, `Initialise`'s
/// folded into an HRESULT. An operation that fails leaves the reason as the thread's last error too: the library returns that
/// to its caller where a connection or a request cannot be initialised. Nothing may throw.

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <memory>
#include <string>

// MSVC lays neighbouring overloads of one name in reverse order of declaration, the Itanium C++ ABI (GCC, Clang, mingw) in the
// order of declaration. A pair that is declared through this macro has its first in the lower slot under both.
#if defined(_MSC_VER)
#define QUENDRA_OVERLOAD_PAIR(first, second)                                                                                               \
    second;                                                                                                                                \
    first
#else
#define QUENDRA_OVERLOAD_PAIR(first, second)                                                                                               \
    first;                                                                                                                                 \
    second
#endif

/// The process's way to servers, and the session token that all its requests carry.
/// The token may be read and written by several threads at once.
class IWinHttpSession
{
public:
    /// Slot 0. Opens the session with its default timeouts.
    virtual ResultCode Initialise() = 0;

    virtual ~IWinHttpSession() = default; // slot 1

    /// Slot 2. Sets the timeouts, in milliseconds (0: no limit), of every request opened from now on.
    /// @return non-zero on success; else the last error tells why.
    virtual int SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) = 0;

    /// Slot 3. Replaces the session token; empty means none.
    virtual void SetSessionToken(const std::wstring& token) = 0;

    /// Slot 4.
    virtual std::wstring GetSessionToken() = 0;

    /// Slot 5. The platform's session handle, owned by the session; null when closed.
    virtual HINTERNET GetHandle() = 0;
};

/// One server and port.
class IWinHttpConnection
{
public:
    virtual ~IWinHttpConnection() = default; // slot 0

    /// Slot 1. Names the server and sets the session's timeouts from the settings; nothing is sent.
    /// @param server                  host name or address.
    /// @param port                    TCP port.
    /// @param session                 an initialised session.
    /// @param sendTimeoutOverride     milliseconds that replace the send timeout setting; 0 for none.
    /// @param receiveTimeoutOverride  milliseconds that replace the receive timeout setting; 0 for none.
    virtual ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>& session,
                                  std::uint64_t sendTimeoutOverride, std::uint64_t receiveTimeoutOverride) = 0;

    /// Slot 2. The platform's connection handle, owned by the connection; null when closed.
    virtual HINTERNET GetHandle() = 0;
};

/// One exchange with the server. Used by one thread, except `Close`.
class IWinHttpRequest
{
public:
    virtual ~IWinHttpRequest() = default; // slot 0

    /// Slot 1. Opens the request; nothing is sent.
    /// @param path        path and query, as they go into the request line; no CR, LF or NUL.
    /// @param verb        the HTTP method.
    /// @param connection  an initialised connection.
    /// @param acceptType  a media type to accept, or null.
    /// @param flags       `WINHTTP_FLAG_SECURE` (0x800000) for HTTPS, else 0.
    virtual ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>& connection,
                                  const wchar_t* acceptType, std::uint32_t flags) = 0;

    /// Slot 2. Adds a header, joined with a comma to one of the same name.
    /// @return 87 for a name or value with CR, LF or NUL.
    virtual ResultCode AddHeader(const std::wstring& name, const std::wstring& value) = 0;

    /// Slot 3. Sends the headers, announcing a body of `contentLength` bytes that is written afterwards.
    virtual ResultCode StartRequest(std::uint64_t contentLength) = 0;

    /// Slot 4. Collects one field of a form-urlencoded body.
    /// @param name    field name, as it is sent.
    /// @param value   value, encoded here.
    /// @param isLast  true leaves out the separator to a next field.
    /// @return 122 where the field's text is longer than 1024 characters; nothing is collected then.
    virtual ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) = 0;

    /// Slot 5. Writes the collected bytes and forgets them, whatever the outcome.
    virtual ResultCode SendPostData() = 0;

    /// Slot 6. Adds the headers of a multipart body.
    /// @param acceptJson  asks for a JSON reply, else for raw bytes.
    virtual ResultCode AddMultipartHeaders(bool acceptJson) = 0;

    /// Slots 7 and 8. Measures a file part of a multipart body (`sizeOut` given: its size in bytes is stored, nothing is
    /// written) or writes it; slot 7 a range of the file, slot 8 the whole.
    /// @param fieldName    form field name.
    /// @param path         local file.
    /// @param fileName     the name in the part's header.
    /// @param cancelEvent  may be null.
    /// @param offset       first byte of the range.
    /// @param length       bytes of the range; cut at the end of the file.
    /// @param progress     may be empty.
    /// @return 1223 when cancelled.
    QUENDRA_OVERLOAD_PAIR(
        virtual ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::int64_t* offset, const std::int64_t* length,
                                             const std::shared_ptr<IProgressCallback>& progress, std::uint64_t* sizeOut) = 0,
        virtual ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                                             std::uint64_t* sizeOut) = 0);

    /// Slots 9 and 10. Collects one form field of a multipart body; the wide form goes through the thread's ANSI code page.
    QUENDRA_OVERLOAD_PAIR(virtual ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) = 0,
                          virtual ResultCode AddMultipartFormData(const char* name, const char* value) = 0);

    /// Slot 11. Collects the closing boundary of a multipart body.
    virtual ResultCode EndMultipart() = 0;

    /// Slot 12. The size of the closing boundary in bytes.
    virtual std::uint32_t GetEndMultipartLength() = 0;

    /// Slots 13 and 14. Slot 13 receives the reply to a request that was sent, into a file; slot 14 sends the request with the
    /// collected body and receives the reply into memory.
    /// @param path         the file: an offset of 0 (in its low half) creates or truncates it, another writes into it there.
    /// @param cancelEvent  may be null.
    /// @param progress     may be empty.
    /// @param offsetLow, offsetHigh  the halves of the position at which the body is written.
    /// @param response     replaced by the body; what it held is not freed.
    /// @return slot 13: 20000 + status for a status other than 200, the file untouched; 1223 when cancelled.
    QUENDRA_OVERLOAD_PAIR(virtual ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                                         const std::shared_ptr<IProgressCallback>& progress, std::uint32_t offsetLow,
                                                         std::uint32_t offsetHigh) = 0,
                          virtual ResultCode GetResponse(ResponseBuffer& response) = 0);

    /// Slot 15. Sends the request with the collected body and receives the reply into a file, like slot 13.
    /// @param acceptOctetStream  asks for raw bytes.
    virtual ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                              const std::shared_ptr<IProgressCallback>& progress, bool acceptOctetStream,
                                              std::uint32_t offsetLow, std::uint32_t offsetHigh) = 0;

    /// Slot 16. The HTTP status of the last reply; 0 before one.
    virtual std::uint32_t GetHTTPStatus() = 0;

    /// Slot 17. How many body bytes are collected.
    virtual std::uint32_t GetPostDataLength() = 0;

    /// Slot 18. Receives the reply to a request that was sent, into memory. Every status is a success here.
    virtual ResultCode ReceiveResponse(ResponseBuffer& response) = 0;

    /// Slot 19. Reads the rest of a reply's body into memory.
    virtual ResultCode ReadResponse(ResponseBuffer& response) = 0;

    /// Slot 20. Closes the request; may be called from another thread, whose blocked call on the request then fails.
    virtual void Close() = 0;
};

/// Makes the transport's objects. May be called by several threads at once.
class IWinHttpFactory
{
public:
    virtual ~IWinHttpFactory() = default; // slot 0

    virtual std::shared_ptr<IWinHttpSession> CreateSession() = 0;       // slot 1
    virtual std::shared_ptr<IWinHttpConnection> CreateConnection() = 0; // slot 2
    /// Slot 3.
    /// @param session  shared by the request for its life.
    virtual std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) = 0;
};
