#pragma once

/// @file
/// The platform's own names that appear in the library's public interfaces, without the rest of the platform's
/// headers: a client that includes this gets no macros and no functions from it.

#include <cstdint>

#if defined(_WIN32)
#include <guiddef.h>
#else
#include "Posix/PosixTypes.h"
#endif

/// A kernel object's handle, as `<winnt.h>` declares it.
using HANDLE = void*;

/// A WinHTTP handle, as `<winhttp.h>` declares it.
using HINTERNET = void*;
