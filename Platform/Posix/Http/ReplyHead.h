#pragma once

/// @file
/// What the header block of a reply says of the rest.

#include "../WinHttp.h"

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string>

struct ReplyHead
{
    long status = 0;
    std::optional<std::uint64_t> contentLength; ///< none where the body is chunked: the chunks tell its end
    std::optional<std::string> location;
};

/// Reads the header block that has just ended on an easy handle.
/// @param[out] head  none where the block only announces another one, as those of the status 1xx do.
/// @return 0, or 12152 where the length of the body is no number, or where there is more than one.
/// @throws std::bad_alloc
[[nodiscard]] DWORD ReadReplyHead(CURL* easy, std::optional<ReplyHead>& head);
