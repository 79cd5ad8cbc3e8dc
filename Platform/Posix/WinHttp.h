#pragma once

/// @file
/// WinHTTP's synchronous calls, over libcurl. Names, arguments, results and error values are those of the Windows documentation of
/// WinHTTP; comments state only the differences on Linux. Handles may be used from any thread, one call on a request at a time, except
/// `WinHttpCloseHandle`: it may be called from another thread at any time and ends a blocked call on that handle at once, with
/// ERROR_WINHTTP_OPERATION_CANCELLED. A closed handle fails every later call with ERROR_INVALID_HANDLE.

#include "Win32.h"

namespace Quendra::Platform
{

using HINTERNET = void*;
using INTERNET_PORT = WORD;

inline constexpr DWORD ERROR_WINHTTP_TIMEOUT = 12002;
inline constexpr DWORD ERROR_WINHTTP_INTERNAL_ERROR = 12004;
inline constexpr DWORD ERROR_WINHTTP_INVALID_URL = 12005;
inline constexpr DWORD ERROR_WINHTTP_NAME_NOT_RESOLVED = 12007;
inline constexpr DWORD ERROR_WINHTTP_INVALID_OPTION = 12009;
inline constexpr DWORD ERROR_WINHTTP_OPERATION_CANCELLED = 12017;
inline constexpr DWORD ERROR_WINHTTP_INCORRECT_HANDLE_TYPE = 12018;
inline constexpr DWORD ERROR_WINHTTP_INCORRECT_HANDLE_STATE = 12019;
inline constexpr DWORD ERROR_WINHTTP_CANNOT_CONNECT = 12029;
inline constexpr DWORD ERROR_WINHTTP_CONNECTION_ERROR = 12030;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CERT_DATE_INVALID = 12037;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CERT_CN_INVALID = 12038;
inline constexpr DWORD ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED = 12044;
inline constexpr DWORD ERROR_WINHTTP_SECURE_INVALID_CA = 12045;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CERT_REV_FAILED = 12057;
inline constexpr DWORD ERROR_WINHTTP_HEADER_NOT_FOUND = 12150;
inline constexpr DWORD ERROR_WINHTTP_INVALID_SERVER_RESPONSE = 12152;
inline constexpr DWORD ERROR_WINHTTP_INVALID_HEADER = 12153;
inline constexpr DWORD ERROR_WINHTTP_HEADER_ALREADY_EXISTS = 12155;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CHANNEL_ERROR = 12157;
inline constexpr DWORD ERROR_WINHTTP_SECURE_INVALID_CERT = 12169;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CERT_REVOKED = 12170;
inline constexpr DWORD ERROR_WINHTTP_SECURE_FAILURE = 12175;
inline constexpr DWORD ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE = 12179;

inline constexpr DWORD HTTP_STATUS_OK = 200;
inline constexpr DWORD HTTP_STATUS_NO_CONTENT = 204;
inline constexpr DWORD HTTP_STATUS_BAD_REQUEST = 400;
inline constexpr DWORD HTTP_STATUS_DENIED = 401;

inline constexpr DWORD WINHTTP_ACCESS_TYPE_DEFAULT_PROXY = 0;
inline constexpr DWORD WINHTTP_FLAG_SECURE = 0x00800000;

inline constexpr DWORD WINHTTP_ADDREQ_FLAG_ADD_IF_NEW = 0x10000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_ADD = 0x20000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA = 0x40000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_REPLACE = 0x80000000;

inline constexpr DWORD WINHTTP_QUERY_CONTENT_LENGTH = 5;
inline constexpr DWORD WINHTTP_QUERY_STATUS_CODE = 19;
inline constexpr DWORD WINHTTP_QUERY_LOCATION = 33;
/// Never found here: a chunked reply has no Content-Length instead.
inline constexpr DWORD WINHTTP_QUERY_TRANSFER_ENCODING = 40;

inline constexpr DWORD WINHTTP_OPTION_RESOLVE_TIMEOUT = 2;
inline constexpr DWORD WINHTTP_OPTION_CONNECT_TIMEOUT = 3;
inline constexpr DWORD WINHTTP_OPTION_SEND_TIMEOUT = 5;
inline constexpr DWORD WINHTTP_OPTION_RECEIVE_TIMEOUT = 6;
inline constexpr DWORD WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT = 7;
inline constexpr DWORD WINHTTP_OPTION_CONTEXT_VALUE = 45;
inline constexpr DWORD WINHTTP_OPTION_REDIRECT_POLICY = 88;
inline constexpr DWORD WINHTTP_OPTION_REDIRECT_POLICY_NEVER = 0;

inline constexpr DWORD WINHTTP_CALLBACK_STATUS_RESOLVING_NAME = 0x1;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_NAME_RESOLVED = 0x2;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER = 0x4;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER = 0x8;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_SENDING_REQUEST = 0x10;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_REQUEST_SENT = 0x20;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_RECEIVING_RESPONSE = 0x40;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED = 0x80;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_SECURE_FAILURE = 0x10000;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_RESOLVE_NAME = 0x3;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER = 0xC;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_SEND_REQUEST = 0x30;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_RECEIVE_RESPONSE = 0xC0;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_SECURE_FAILURE = WINHTTP_CALLBACK_STATUS_SECURE_FAILURE;
inline constexpr DWORD WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS = 0xFFFFFFFF;

inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED = 0x1;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT = 0x2;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED = 0x4;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA = 0x8;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID = 0x10;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID = 0x20;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE = 0x40;
inline constexpr DWORD WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR = 0x80000000;

/// Where Windows has a calling convention, it is the default one on x64, so that one function serves both platforms. It must not throw.
using WINHTTP_STATUS_CALLBACK = void (*)(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID information, DWORD informationLength);

inline const auto WINHTTP_INVALID_STATUS_CALLBACK =
    reinterpret_cast<WINHTTP_STATUS_CALLBACK>(static_cast<std::intptr_t>(-1)); // NOLINT(performance-no-int-to-ptr)

inline const LPCWSTR WINHTTP_NO_PROXY_NAME = nullptr;
inline const LPCWSTR WINHTTP_NO_PROXY_BYPASS = nullptr;
inline const LPCWSTR WINHTTP_NO_REFERER = nullptr;
inline const LPCWSTR WINHTTP_NO_ADDITIONAL_HEADERS = nullptr;
inline const LPVOID WINHTTP_NO_REQUEST_DATA = nullptr;
inline const LPCWSTR WINHTTP_HEADER_NAME_BY_INDEX = nullptr;
inline DWORD* const WINHTTP_NO_HEADER_INDEX = nullptr;

/// The certificates that are trusted are the system's, or those that SSL_CERT_FILE and SSL_CERT_DIR name when a session is opened. The
/// access type must be `WINHTTP_ACCESS_TYPE_DEFAULT_PROXY` (the proxy is taken from the environment), the flags 0 (else
/// ERROR_INVALID_PARAMETER).
QUENDRA_PLATFORM_API HINTERNET WinHttpOpen(LPCWSTR userAgent, DWORD accessType, LPCWSTR proxy, LPCWSTR proxyBypass, DWORD flags) noexcept;
/// A text that cannot be a server's name (such as one with a port or a path) fails with ERROR_WINHTTP_NAME_NOT_RESOLVED when a request is
/// sent. Letters beyond ASCII make an internationalised name.
QUENDRA_PLATFORM_API HINTERNET WinHttpConnect(HINTERNET session, LPCWSTR server, INTERNET_PORT port, DWORD reserved) noexcept;
QUENDRA_PLATFORM_API HINTERNET WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR path, LPCWSTR version, LPCWSTR referrer,
                                                  LPCWSTR* acceptTypes, DWORD flags) noexcept;
/// Milliseconds, on a session or a request; 0 or less is no limit. Resolving and connecting, which includes the TLS handshake, share one
/// limit: the sum of both, or none if connecting has none. Send and receive limit the time without progress. A request takes its session's
/// values when it is opened.
QUENDRA_PLATFORM_API BOOL WinHttpSetTimeouts(HINTERNET handle, int resolve, int connect, int send, int receive) noexcept;
/// Notifies on the calling thread of the `WINHTTP_CALLBACK_STATUS_*` values above, with the information of the Windows documentation: names
/// and addresses are NUL-terminated, and their length counts the NUL. What is connected to may be the proxy. A name that was resolved less
/// than a minute ago is not resolved again, and a kept connection is not connected again. Handles that are opened later inherit the
/// callback and the context value of the handle they are opened from. A callback set while a request is sent takes effect with the next
/// one.
QUENDRA_PLATFORM_API WINHTTP_STATUS_CALLBACK WinHttpSetStatusCallback(HINTERNET handle, WINHTTP_STATUS_CALLBACK callback,
                                                                      DWORD notifications, DWORD_PTR reserved) noexcept;
/// Supports the context value on any handle, the four timeout options, of 4 bytes each, on a session or a request, and the redirect policy
/// "never", which always applies on Linux; another policy fails with ERROR_INVALID_PARAMETER, another option with
/// ERROR_WINHTTP_INVALID_OPTION. The time for a reply's headers has no effect: on Linux the receive timeout alone limits it.
QUENDRA_PLATFORM_API BOOL WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD* length) noexcept;
/// A line without a name and a colon fails with ERROR_WINHTTP_INVALID_HEADER; lines before it stay added.
QUENDRA_PLATFORM_API BOOL WinHttpAddRequestHeaders(HINTERNET request, LPCWSTR headers, DWORD length, DWORD modifiers) noexcept;
/// A `Content-Length` among the headers announces a body of any size for `WinHttpWriteData`. If a kept connection turns out to be closed,
/// only GET and HEAD without a body are sent again; other requests use a kept connection only within three seconds of its last use. The
/// session's cookies precede those of a `Cookie` header. A path of more than 512 KiB fails with ERROR_WINHTTP_INVALID_URL, header lines of
/// more than 256 KiB with ERROR_WINHTTP_INVALID_HEADER. If a proxy refuses the tunnel, its status is the reply's.
QUENDRA_PLATFORM_API BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength,
                                             DWORD totalLength, DWORD_PTR context) noexcept;
/// More than was announced fails with ERROR_WINHTTP_INCORRECT_HANDLE_STATE. If the server has already refused the request, the bytes count
/// as written.
QUENDRA_PLATFORM_API BOOL WinHttpWriteData(HINTERNET request, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten) noexcept;
/// Redirects are not followed. A reply fails with ERROR_WINHTTP_INVALID_SERVER_RESPONSE if its length is not a number or is stated twice
/// with different values, if its header lines, trailers included, exceed 256 KiB, if one of them exceeds 100 KiB, if over 100 of them state
/// a length or a coding, or if its transfer coding is not "chunked". A length is ignored if the body is chunked.
QUENDRA_PLATFORM_API BOOL WinHttpReceiveResponse(HINTERNET request, LPVOID reserved) noexcept;
/// Supports the status code, the content length, the location and the transfer coding, as text; others fail with ERROR_INVALID_PARAMETER.
QUENDRA_PLATFORM_API BOOL WinHttpQueryHeaders(HINTERNET request, DWORD level, LPCWSTR name, LPVOID buffer, DWORD* length,
                                              DWORD* index) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpQueryDataAvailable(HINTERNET request, DWORD* bytes) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD bytes, DWORD* bytesRead) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpCloseHandle(HINTERNET handle) noexcept;

/// Not one of WinHTTP's: lets calls on a request that wait for the network end with ERROR_CANCELLED after the event was signalled;
/// it is tested every 25 ms. A wait that sees an auto-reset event resets it.
/// @param event  must stay valid until the request's handle is closed; null: none.
QUENDRA_PLATFORM_API void EndOnEvent(HINTERNET request, HANDLE event) noexcept;

} // namespace Quendra::Platform
