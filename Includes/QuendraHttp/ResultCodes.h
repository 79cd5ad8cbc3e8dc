#pragma once

/// @file
/// Result codes of the library's operations. `QuendraHttp/ResultMeanings.h` says what each means. A code without a name here is an
/// error value of the platform (https://learn.microsoft.com/windows/win32/debug/system-error-codes,
/// https://learn.microsoft.com/windows/win32/winhttp/error-messages), passed on from the step that failed, or such a value converted to an
/// HRESULT.

#include <cstdint>

/// What every operation returns: 0 is success.
using ResultCode = std::uint32_t;

/// The codes that callers may want to handle.
namespace Result
{

inline constexpr ResultCode Success = 0;                   ///< ERROR_SUCCESS.
inline constexpr ResultCode AccessDenied = 5;              ///< ERROR_ACCESS_DENIED.
inline constexpr ResultCode InvalidHandle = 6;             ///< ERROR_INVALID_HANDLE.
inline constexpr ResultCode NotEnoughMemory = 8;           ///< ERROR_NOT_ENOUGH_MEMORY.
inline constexpr ResultCode InvalidData = 13;              ///< ERROR_INVALID_DATA.
inline constexpr ResultCode SharingViolation = 32;         ///< ERROR_SHARING_VIOLATION.
inline constexpr ResultCode EndOfFile = 38;                ///< ERROR_HANDLE_EOF.
inline constexpr ResultCode NotSupported = 50;             ///< ERROR_NOT_SUPPORTED.
inline constexpr ResultCode InvalidParameter = 87;         ///< ERROR_INVALID_PARAMETER.
inline constexpr ResultCode InsufficientBuffer = 122;      ///< ERROR_INSUFFICIENT_BUFFER.
inline constexpr ResultCode InvalidName = 123;             ///< ERROR_INVALID_NAME.
inline constexpr ResultCode Cancelled = 1223;              ///< ERROR_CANCELLED.
inline constexpr ResultCode Retry = 1237;                  ///< ERROR_RETRY: repeat the operation.
inline constexpr ResultCode ServerDisabled = 1341;         ///< ERROR_SERVER_DISABLED.
inline constexpr ResultCode BadReply = 12004;              ///< ERROR_WINHTTP_INTERNAL_ERROR.
inline constexpr ResultCode ConnectionBroken = 12030;      ///< ERROR_WINHTTP_CONNECTION_ERROR.
inline constexpr ResultCode InvalidServerResponse = 12152; ///< ERROR_WINHTTP_INVALID_SERVER_RESPONSE.
inline constexpr ResultCode IncompatibleServer = 19006;    ///< defined by this library.
inline constexpr ResultCode RefusalBase = 20000;           ///< a refusal is this plus the reply's "errorId", else plus the HTTP status.
inline constexpr ResultCode SessionInvalid = 20006;        ///< the refusal with the errorId 6.
inline constexpr ResultCode Conflict = 21077;              ///< the refusal with the errorId 1077; it carries the item's current attributes.
inline constexpr ResultCode LastRefusal = 27775; ///< up to this code `DownloadFile` reads the reply's "errorId"; higher refusals exist.
inline constexpr ResultCode Failed = 0x80004005; ///< E_FAIL.

} // namespace Result
