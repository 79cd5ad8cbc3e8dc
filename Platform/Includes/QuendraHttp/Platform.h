#pragma once

/// @file
/// The platform calls that a caller of the library needs: cancel events, upload identifiers and the last error. On Windows they are the
/// system's own, in its headers; elsewhere the same names stand in a namespace. A source for both begins with
///
///     #include <QuendraHttp/Platform.h>
///     using namespace Quendra::Platform;
///
/// Names, arguments, results and error values are those of the Windows documentation; comments state only the differences on Linux.

#include "QuendraHttp/UploadId.h"

#if defined(_WIN32)
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#if !defined(WIN32_LEAN_AND_MEAN)
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// <objbase.h> needs the types of <windows.h>.
#include <objbase.h>
#else
#include <cstdint>

#if defined(QUENDRA_PLATFORM_BUILD)
#define QUENDRA_PLATFORM_API __attribute__((visibility("default")))
#else
#define QUENDRA_PLATFORM_API
#endif

namespace Quendra::Platform
{

using BOOL = int;
using DWORD = std::uint32_t;
using HRESULT = std::int32_t;
using HANDLE = void*;
using LPCWSTR = const wchar_t*;

// Last error, one value a thread (<errhandlingapi.h>).

QUENDRA_PLATFORM_API DWORD GetLastError() noexcept;
QUENDRA_PLATFORM_API void SetLastError(DWORD error) noexcept;

// Handles and events (<handleapi.h>, <synchapi.h>).

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1)); // NOLINT(performance-no-int-to-ptr)

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

/// Closes a file or event handle. Closing a null or invalid handle fails with ERROR_INVALID_HANDLE.
QUENDRA_PLATFORM_API BOOL CloseHandle(HANDLE handle) noexcept;

/// Makes an unnamed event: attributes and name must be null (else ERROR_INVALID_PARAMETER).
QUENDRA_PLATFORM_API HANDLE CreateEventW(void* attributes, BOOL manualReset, BOOL initialState, LPCWSTR name) noexcept;
QUENDRA_PLATFORM_API BOOL SetEvent(HANDLE event) noexcept;
QUENDRA_PLATFORM_API BOOL ResetEvent(HANDLE event) noexcept;

/// Waits for an event; any other handle fails with ERROR_INVALID_HANDLE.
QUENDRA_PLATFORM_API DWORD WaitForSingleObject(HANDLE event, DWORD milliseconds) noexcept;

// Identifiers (<combaseapi.h>).

inline constexpr HRESULT S_OK = 0;

/// A random (version 4, RFC 4122) identifier from the system's random source.
QUENDRA_PLATFORM_API HRESULT CoCreateGuid(GUID* guid) noexcept;

} // namespace Quendra::Platform
#endif
