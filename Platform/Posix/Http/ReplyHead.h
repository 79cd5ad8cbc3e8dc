#pragma once

/// @file
/// The status and the headers of a reply that the transport evaluates.

#include "../WinHttp.h"

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Quendra::Platform
{

struct ReplyHead
{
    long status = 0;
    std::optional<std::uint64_t> contentLength; ///< empty if the body is chunked
    std::optional<std::string> location;
};

/// Reads the header block that has just ended on an easy handle.
/// @param[out] head  empty for an interim reply, such as one with status 1xx: another header block follows.
/// @return 0, or ERROR_WINHTTP_INVALID_SERVER_RESPONSE if the body's length is not a number, or there is more than one.
/// @throws std::bad_alloc
[[nodiscard]] DWORD ReadReplyHead(CURL* easy, std::optional<ReplyHead>& head);

} // namespace Quendra::Platform
