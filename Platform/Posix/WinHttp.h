#pragma once

/// @file
/// WinHTTP's synchronous calls, over libcurl. Names, arguments, results and error values are those of the Windows
/// documentation of WinHTTP; a comment stands where this home differs. Handles may be used from any thread, one call on a
/// request at a time, except `WinHttpCloseHandle`: it may come from another thread at any time and ends a call that is
/// blocked on that handle at once, with 12017. A handle that was closed fails every later call with 6.

#include "Win32.h"

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
inline constexpr DWORD ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED = 12044;
inline constexpr DWORD ERROR_WINHTTP_HEADER_NOT_FOUND = 12150;
inline constexpr DWORD ERROR_WINHTTP_INVALID_SERVER_RESPONSE = 12152;
inline constexpr DWORD ERROR_WINHTTP_INVALID_HEADER = 12153;
inline constexpr DWORD ERROR_WINHTTP_HEADER_ALREADY_EXISTS = 12155;
inline constexpr DWORD ERROR_WINHTTP_SECURE_FAILURE = 12175;

inline constexpr DWORD WINHTTP_ACCESS_TYPE_DEFAULT_PROXY = 0;
inline constexpr DWORD WINHTTP_FLAG_SECURE = 0x00800000;

inline constexpr DWORD WINHTTP_ADDREQ_FLAG_ADD_IF_NEW = 0x10000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_ADD = 0x20000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA = 0x40000000;
inline constexpr DWORD WINHTTP_ADDREQ_FLAG_REPLACE = 0x80000000;

inline constexpr DWORD WINHTTP_QUERY_CONTENT_LENGTH = 5;
inline constexpr DWORD WINHTTP_QUERY_STATUS_CODE = 19;
inline constexpr DWORD WINHTTP_QUERY_LOCATION = 33;

inline constexpr DWORD WINHTTP_OPTION_RESOLVE_TIMEOUT = 2;
inline constexpr DWORD WINHTTP_OPTION_CONNECT_TIMEOUT = 3;
inline constexpr DWORD WINHTTP_OPTION_SEND_TIMEOUT = 5;
inline constexpr DWORD WINHTTP_OPTION_RECEIVE_TIMEOUT = 6;
inline constexpr DWORD WINHTTP_OPTION_REDIRECT_POLICY = 88;
inline constexpr DWORD WINHTTP_OPTION_REDIRECT_POLICY_NEVER = 0;

inline const LPCWSTR WINHTTP_NO_PROXY_NAME = nullptr;
inline const LPCWSTR WINHTTP_NO_PROXY_BYPASS = nullptr;
inline const LPCWSTR WINHTTP_NO_REFERER = nullptr;
inline const LPCWSTR WINHTTP_NO_ADDITIONAL_HEADERS = nullptr;
inline const LPVOID WINHTTP_NO_REQUEST_DATA = nullptr;
inline const LPCWSTR WINHTTP_HEADER_NAME_BY_INDEX = nullptr;
inline DWORD* const WINHTTP_NO_HEADER_INDEX = nullptr;

/// The certificates that are trusted are the system's, or those that SSL_CERT_FILE and SSL_CERT_DIR name when a session is opened.
/// The access type must be `WINHTTP_ACCESS_TYPE_DEFAULT_PROXY` (the proxy is taken from the environment), the flags 0 (else 87).
QUENDRA_PLATFORM_API HINTERNET WinHttpOpen(LPCWSTR userAgent, DWORD accessType, LPCWSTR proxy, LPCWSTR proxyBypass, DWORD flags) noexcept;
/// A text that cannot be a server's name (one with a port or a path) fails when a request is sent, with 12007. Letters beyond
/// ASCII are those of an internationalised name.
QUENDRA_PLATFORM_API HINTERNET WinHttpConnect(HINTERNET session, LPCWSTR server, INTERNET_PORT port, DWORD reserved) noexcept;
QUENDRA_PLATFORM_API HINTERNET WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR path, LPCWSTR version, LPCWSTR referrer,
                                                  LPCWSTR* acceptTypes, DWORD flags) noexcept;
/// Milliseconds, on a session or a request; 0 or less is no limit. Resolving and connecting, the TLS handshake included, have
/// one limit: the sum of theirs, or none where connecting has none. Send and receive limit the time without progress. A request takes its
/// session's values when it is opened.
QUENDRA_PLATFORM_API BOOL WinHttpSetTimeouts(HINTERNET handle, int resolve, int connect, int send, int receive) noexcept;
/// Knows the four timeout options, of 4 bytes each, on a session or a request, and the redirect policy "never", which always
/// holds here; another policy fails with 87, another option with 12009.
QUENDRA_PLATFORM_API BOOL WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD length) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD* length) noexcept;
/// A line without a name and a colon fails with 12153; lines before it stay added.
QUENDRA_PLATFORM_API BOOL WinHttpAddRequestHeaders(HINTERNET request, LPCWSTR headers, DWORD length, DWORD modifiers) noexcept;
/// A `Content-Length` among the headers announces a body of any size that `WinHttpWriteData` then carries. Only GET and HEAD
/// without a body are sent once more where a kept connection turns out to be dead; the other requests use a kept connection
/// within three seconds of its last use. The session's cookies of the server go out in front of those of a `Cookie` header. A
/// path of more than 512 KiB fails with 12005, header lines of more than 256 KiB with 12153. A proxy that makes no tunnel to
/// the server answers in its place, with its own status.
QUENDRA_PLATFORM_API BOOL WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional, DWORD optionalLength,
                                             DWORD totalLength, DWORD_PTR context) noexcept;
/// More than was announced fails with 12019. Bytes that a server no longer waits for, because it has refused, count as written.
QUENDRA_PLATFORM_API BOOL WinHttpWriteData(HINTERNET request, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten) noexcept;
/// A redirect is a reply like any other: it is not followed. A reply whose length is no number or is stated twice with
/// different values, and one with more than 256 KiB of header lines, trailers included, or a header line of more than 100 KiB,
/// fails with 12152. A length beside chunked coding counts for nothing.
QUENDRA_PLATFORM_API BOOL WinHttpReceiveResponse(HINTERNET request, LPVOID reserved) noexcept;
/// Knows the status code, the content length and the location, as text; asked for others it fails with 87.
QUENDRA_PLATFORM_API BOOL WinHttpQueryHeaders(HINTERNET request, DWORD level, LPCWSTR name, LPVOID buffer, DWORD* length,
                                              DWORD* index) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpQueryDataAvailable(HINTERNET request, DWORD* bytes) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpReadData(HINTERNET request, LPVOID buffer, DWORD bytes, DWORD* bytesRead) noexcept;
QUENDRA_PLATFORM_API BOOL WinHttpCloseHandle(HINTERNET handle) noexcept;
