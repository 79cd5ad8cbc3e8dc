#pragma once

/// @file
/// Every platform call that the library makes, under the platform's own names. On Windows these are the system's; elsewhere
/// `Posix/` provides the same names with the same results and error values.

#include "PlatformTypes.h"

#if defined(_WIN32)
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#if !defined(WIN32_LEAN_AND_MEAN)
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// <objbase.h> and <winhttp.h> need the types of <windows.h>.
#include <objbase.h>
#include <winhttp.h>
#else
#include "Posix/Win32.h"
#include "Posix/WinHttp.h"
#endif

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
