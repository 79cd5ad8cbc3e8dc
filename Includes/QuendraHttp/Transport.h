#pragma once

/// @file
/// The transport below the library: sessions, connections and requests, and the factory that makes them. The library's own transport uses
/// WinHTTP; a caller replaces it by passing another factory to `CreateInstanceWithFactory`.
///
/// The order of the virtual operations is part of the contract. Result codes are 0 or a platform error value, from `Initialise` as an
/// HRESULT. An operation that fails also sets the thread's last error: the library returns it if a connection or a request cannot be
/// initialised. Nothing may throw.

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <memory>
#include <string>

/// @cond
// MSVC puts adjacent overloads of one name into the vtable in reverse order of declaration, the Itanium C++ ABI (GCC, Clang, mingw) in
// order of declaration. With this macro the first of a pair gets the lower slot under both.
#if defined(_MSC_VER)
#define QUENDRA_OVERLOAD_PAIR(first, second)                                                                                               \
    second;                                                                                                                                \
    first
#else
#define QUENDRA_OVERLOAD_PAIR(first, second)                                                                                               \
    first;                                                                                                                                 \
    second
#endif
/// @endcond

/// An HTTP session and the session token that all its requests carry.
/// The token may be read and written by several threads at once.
class IWinHttpSession
{
public:
    /// Slot 0. Opens the session with its default timeouts.
    /// @return 0 or an HRESULT.
    virtual ResultCode Initialise() = 0;

    virtual ~IWinHttpSession() = default; // slot 1

    /// Slot 2. Sets the timeouts, in milliseconds (0: no limit), of every request opened from now on.
    /// @param resolve  for the server's name.
    /// @param connect  for a connection.
    /// @param send     for each piece that is sent.
    /// @param receive  for each piece that is received.
    /// @return non-zero on success; else the last error tells why.
    virtual int SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) = 0;

    /// Slot 3. Replaces the session token.
    /// @param token  empty for none.
    virtual void SetSessionToken(const std::wstring& token) = 0;

    /// Slot 4.
    /// @return the session token; empty for none.
    virtual std::wstring GetSessionToken() = 0;

    /// Slot 5. Called only by the library's own connections.
    /// @return the platform's session handle, owned by the session; null when closed.
    virtual void* GetHandle() = 0;
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
    /// @return 0 or an HRESULT.
    virtual ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>& session,
                                  std::uint64_t sendTimeoutOverride, std::uint64_t receiveTimeoutOverride) = 0;

    /// Slot 2. Called only by the library's own requests.
    /// @return the platform's connection handle, owned by the connection; null when closed.
    virtual void* GetHandle() = 0;
};

/// One request and its reply. Used by one thread, except `Close`.
class IWinHttpRequest
{
public:
    virtual ~IWinHttpRequest() = default; // slot 0

    /// Slot 1. Opens the request; nothing is sent.
    /// @param path        path and query, as they go into the request line; no CR, LF or NUL. One, of `AcknowledgeRemoteWipe`, has no
    ///                    slash at its begin: it goes out with one.
    /// @param verb        the HTTP method.
    /// @param connection  an initialised connection.
    /// @param acceptType  a media type to accept, or null.
    /// @param flags       `WINHTTP_FLAG_SECURE` (0x800000) for HTTPS, else 0.
    /// @return 0 or an HRESULT.
    virtual ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>& connection,
                                  const wchar_t* acceptType, std::uint32_t flags) = 0;

    /// Slot 2. Adds a header, joined with a comma to one of the same name.
    /// @param name   without the colon.
    /// @param value  as it is sent.
    /// @return `Result::InvalidParameter` for a name or value with CR, LF or NUL.
    virtual ResultCode AddHeader(const std::wstring& name, const std::wstring& value) = 0;

    /// Slot 3. Sends the headers; the body is written afterwards.
    /// @param contentLength  the body's size in bytes, sent in the headers.
    /// @return 0 or a platform error.
    virtual ResultCode StartRequest(std::uint64_t contentLength) = 0;

    /// Slot 4. Collects one field of a form-urlencoded body.
    /// @param name    field name, as it is sent.
    /// @param value   value, encoded here.
    /// @param isLast  true omits the separator after the field.
    /// @return `Result::InsufficientBuffer` where the field's text is longer than 1024 characters; nothing is collected then.
    virtual ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) = 0;

    /// Slot 5. Writes the collected bytes and discards them, even on failure.
    /// @return 0 or a platform error.
    virtual ResultCode SendPostData() = 0;

    /// Slot 6. Adds the headers of a multipart body.
    /// @param acceptJson  asks for a JSON reply, else for raw bytes.
    /// @return 0 or a platform error.
    virtual ResultCode AddMultipartHeaders(bool acceptJson) = 0;

    QUENDRA_OVERLOAD_PAIR(
        /// Slot 7. Measures or writes a part of a multipart body: a range of a local file. A write after a measurement with the same path,
        /// offset and length sends exactly the measured bytes: what was appended since is ignored, and a file that has shrunk ends with
        /// `Result::EndOfFile`. Without a measurement the range is cut at the file's current end.
        /// @param fieldName    form field name.
        /// @param path         local file.
        /// @param fileName     the name in the part's header.
        /// @param cancelEvent  tested after each block; may be null.
        /// @param offset       first byte of the range.
        /// @param length       bytes of the range; cut at the end of the file.
        /// @param progress     may be empty.
        /// @param sizeOut      where it is given, it gets the part's size in bytes, and nothing is written.
        /// @return `Result::Cancelled` when cancelled; `Result::InsufficientBuffer` for a part header of more than 8192 bytes, nothing
        ///         written; a platform error.
        virtual ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::int64_t* offset, const std::int64_t* length,
                                             const std::shared_ptr<IProgressCallback>& progress, std::uint64_t* sizeOut) = 0,
        /// Slot 8. As slot 7, with the whole file.
        /// @param fieldName    form field name.
        /// @param path         local file.
        /// @param fileName     the name in the part's header.
        /// @param cancelEvent  tested after each block; may be null.
        /// @param progress     may be empty.
        /// @param sizeOut      where it is given, it gets the part's size in bytes, and nothing is written.
        /// @return `Result::Cancelled` when cancelled; `Result::InsufficientBuffer` for a part header of more than 8192 bytes, nothing
        ///         written; a platform error.
        virtual ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                             const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                                             std::uint64_t* sizeOut) = 0);

    QUENDRA_OVERLOAD_PAIR(
        /// Slot 9. As slot 10, for wide text, converted to the thread's ANSI code page.
        /// @param name   field name.
        /// @param value  the field's value.
        /// @return `Result::InsufficientBuffer` for a part header of more than 8192 bytes, nothing collected; a platform error.
        virtual ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) = 0,
        /// Slot 10. Collects one form field of a multipart body.
        /// @param name   field name.
        /// @param value  the field's value, sent as it is.
        /// @return `Result::InsufficientBuffer` for a part header of more than 8192 bytes, nothing collected; a platform error.
        virtual ResultCode AddMultipartFormData(const char* name, const char* value) = 0);

    /// Slot 11. Collects the closing boundary of a multipart body.
    /// @return 0 or a platform error.
    virtual ResultCode EndMultipart() = 0;

    /// Slot 12.
    /// @return the size of the closing boundary in bytes.
    virtual std::uint32_t GetEndMultipartLength() = 0;

    QUENDRA_OVERLOAD_PAIR(
        /// Slot 13. Receives the reply to a request that was sent, into a file.
        /// @param path         the file: created or truncated if the offset's low half is 0, else written at the offset.
        /// @param cancelEvent  tested after each block; may be null.
        /// @param progress     may be empty.
        /// @param offsetLow    the low half of the position at which the body is written.
        /// @param offsetHigh   its high half.
        /// @return `Result::RefusalBase` plus the status for a status other than 200, the file untouched; `Result::Cancelled` when
        ///         cancelled; a platform error.
        virtual ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                       const std::shared_ptr<IProgressCallback>& progress, std::uint32_t offsetLow,
                                       std::uint32_t offsetHigh) = 0,
        /// Slot 14. Sends the request with the collected body and receives the reply into memory. Every status is a success here.
        /// @param[out] response  replaced by the body; what it held is not freed.
        /// @return 0 or a platform error.
        virtual ResultCode GetResponse(ResponseBuffer& response) = 0);

    /// Slot 15. Sends the request with the collected body and receives the reply into a file, like slot 13.
    /// @param path               as of slot 13, like the others.
    /// @param cancelEvent        may be null.
    /// @param progress           may be empty.
    /// @param acceptOctetStream  asks for raw bytes.
    /// @param offsetLow          the low half of the position.
    /// @param offsetHigh         its high half.
    /// @return as slot 13.
    virtual ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                              const std::shared_ptr<IProgressCallback>& progress, bool acceptOctetStream,
                                              std::uint32_t offsetLow, std::uint32_t offsetHigh) = 0;

    /// Slot 16.
    /// @return the HTTP status of the last reply; 0 before one.
    virtual std::uint32_t GetHTTPStatus() = 0;

    /// Slot 17.
    /// @return how many body bytes are collected.
    virtual std::uint32_t GetPostDataLength() = 0;

    /// Slot 18. Receives the reply to a request that was sent, into memory. Every status is a success here.
    /// @param[out] response  replaced by the body; what it held is not freed.
    /// @return `Result::InsufficientBuffer` where the server announces more than 5 MiB at once; a platform error.
    virtual ResultCode ReceiveResponse(ResponseBuffer& response) = 0;

    /// Slot 19. Reads the rest of a reply's body into memory.
    /// @param[out] response  replaced by the body; what it held is not freed.
    /// @return as slot 18.
    virtual ResultCode ReadResponse(ResponseBuffer& response) = 0;

    /// Slot 20. Closes the request; may be called from another thread, whose blocked call on the request then fails.
    virtual void Close() = 0;
};

/// Makes the transport's objects. May be called by several threads at once.
class IWinHttpFactory
{
public:
    virtual ~IWinHttpFactory() = default; // slot 0

    /// Slot 1.
    /// @return a session, not initialised yet.
    virtual std::shared_ptr<IWinHttpSession> CreateSession() = 0;
    /// Slot 2.
    /// @return a connection, not initialised yet.
    virtual std::shared_ptr<IWinHttpConnection> CreateConnection() = 0;
    /// Slot 3.
    /// @param session  kept alive by the request.
    /// @return a request, not initialised yet.
    virtual std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) = 0;
};
