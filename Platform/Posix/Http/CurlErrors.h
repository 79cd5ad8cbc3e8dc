#pragma once

/// @file
/// WinHTTP's error values for curl's.

#include "../WinHttp.h"

#include <curl/curl.h>

[[nodiscard]] DWORD Win32ErrorOf(CURLcode result) noexcept;
