#pragma once

/// @file
/// Result codes of the library's operations. A code that is not listed here is an error value of the platform
/// (https://learn.microsoft.com/windows/win32/debug/system-error-codes, https://learn.microsoft.com/windows/win32/winhttp/error-messages),
/// passed through from the step that failed, or such a value folded into an HRESULT.

#include <cstdint>

/// What every operation returns: 0 is success.
using ResultCode = std::uint32_t;

namespace Result
{

inline constexpr ResultCode Success = 0;
/// ERROR_ACCESS_DENIED: a login was answered without a session token, or a change of a path without exactly one item.
inline constexpr ResultCode AccessDenied = 5;
/// ERROR_INVALID_HANDLE: the object was closed, or never opened.
inline constexpr ResultCode InvalidHandle = 6;
/// ERROR_NOT_ENOUGH_MEMORY: there is no reply body in memory.
inline constexpr ResultCode NotEnoughMemory = 8;
/// ERROR_INVALID_DATA: a successful reply could not be read as what it should hold.
inline constexpr ResultCode InvalidData = 13;
/// ERROR_INVALID_PARAMETER: an argument cannot be used, such as text with a line break for a header.
inline constexpr ResultCode InvalidParameter = 87;
/// ERROR_CALL_NOT_IMPLEMENTED: this version of the library does not have the operation.
inline constexpr ResultCode NotImplemented = 120;
/// ERROR_INSUFFICIENT_BUFFER: the server announced more than 5 MiB for one read, or a form field is too long.
inline constexpr ResultCode InsufficientBuffer = 122;
/// ERROR_CANCELLED: the caller's cancel event was signalled.
inline constexpr ResultCode Cancelled = 1223;
/// ERROR_RETRY: refused with 401 while another login changed the session token: repeat the operation.
inline constexpr ResultCode Retry = 1237;
/// ERROR_SERVER_DISABLED: the server has no audit endpoint.
inline constexpr ResultCode ServerDisabled = 1341;
/// ERROR_WINHTTP_INTERNAL_ERROR: a handshake or version reply lacks the member that it must have.
inline constexpr ResultCode BadReply = 12004;
/// ERROR_WINHTTP_CONNECTION_ERROR: the connection broke, or a body ended before its announced length.
inline constexpr ResultCode ConnectionBroken = 12030;
/// ERROR_WINHTTP_INVALID_SERVER_RESPONSE: an upload was answered without the body that it needs.
inline constexpr ResultCode InvalidServerResponse = 12152;
/// The server offers no API version that this library speaks.
inline constexpr ResultCode IncompatibleServer = 19006;
/// A refusal by the server: this plus the reply's "errorId", or plus the HTTP status where the reply has none.
inline constexpr ResultCode RefusalBase = 20000;
/// The refusal that says that the session is no longer valid.
inline constexpr ResultCode SessionInvalid = 20006;
/// The refusal that carries the item's current attributes.
inline constexpr ResultCode Conflict = 21077;
/// E_FAIL: memory for a text ran out.
inline constexpr ResultCode Failed = 0x80004005;

} // namespace Result
