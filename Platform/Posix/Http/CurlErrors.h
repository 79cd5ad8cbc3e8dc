#pragma once

/// @file
/// WinHTTP's error values for curl's.

#include "../WinHttp.h"

#include <curl/curl.h>

#include <string_view>

/// @param isConnected  whether the request was on its way, or had at least a connection.
/// @param text  what curl says of the error, or "".
[[nodiscard]] DWORD Win32ErrorOf(CURLcode result, bool isConnected, std::string_view text) noexcept;
