#pragma once

/// @file
/// Every platform call that the library makes, under the platform's own names. On Windows these are the system's; elsewhere
/// `Posix/` provides the same names with the same results and error values.

#if defined(_WIN32)
#include "QuendraHttp/Platform.h"

// Otherwise the Windows SDK declares the calls as imported, and the tests could not replace them.
#define _WINHTTP_INTERNAL_ // NOLINT(bugprone-reserved-identifier)
// It needs the types of <windows.h>.
#include <winhttp.h>

/// WinHTTP's calls cannot end on an event.
inline void EndOnEvent(HINTERNET, HANDLE) noexcept
{
}
#else
#include "Posix/Win32.h"
#include "Posix/WinHttp.h"
#endif

using namespace Quendra::Platform; // NOLINT(google-global-names-in-headers): no installed header includes this one

/// Keeps the calling thread's last error over a scope, whatever is called inside.
class LastErrorKeeper
{
public:
    LastErrorKeeper() noexcept : m_error(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(m_error); }

    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    DWORD m_error;
};
