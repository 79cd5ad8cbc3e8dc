#pragma once

/// @file
/// Maps curl's error codes to WinHTTP's error values.

#include "../WinHttp.h"

#include <curl/curl.h>

#include <string_view>

namespace Quendra::Platform
{

/// @param isConnected  whether the request was being sent, or at least a connection was established.
/// @param text  curl's error text, or "".
[[nodiscard]] DWORD Win32ErrorOf(CURLcode result, bool isConnected, std::string_view text) noexcept;

} // namespace Quendra::Platform
