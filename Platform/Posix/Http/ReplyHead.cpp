#include "ReplyHead.h"

#include "../../Ascii.h"
#include "RequestHeaders.h"

namespace Quendra::Platform
{

namespace
{

// The value of a header by name and index; nothing if there are fewer of that name.
std::optional<std::string> HeaderOf(CURL* easy, const char* name, std::size_t index = 0)
{
    curl_header* header = nullptr;
    if (curl_easy_header(easy, name, index, CURLH_HEADER, -1, &header) != CURLHE_OK)
        return std::nullopt;
    return std::string(header->value);
}

bool IsChunked(CURL* easy)
{
    for (std::size_t index = 0; const auto coding = HeaderOf(easy, "Transfer-Encoding", index); ++index)
    {
        const auto last = std::min(coding->find_last_of(", \t") + 1, coding->size()); // npos + 1 is 0
        if (EqualIgnoringAsciiCase(std::string_view(*coding).substr(last), "chunked"))
            return true;
    }
    return false;
}

} // namespace

DWORD ReadReplyHead(CURL* easy, std::optional<ReplyHead>& head)
{
    constexpr long kSwitchingProtocols = 101;
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status); // NOLINT(cppcoreguidelines-pro-type-vararg)
    head.reset();
    if (status / 100 == 1 && status != kSwitchingProtocols)
        return ERROR_SUCCESS;
    std::optional<std::uint64_t> contentLength;
    if (!IsChunked(easy))
    {
        for (std::size_t index = 0; const auto text = HeaderOf(easy, kContentLength, index); ++index)
        {
            const auto length = ParseContentLength(*text);
            if (!length || (contentLength && *contentLength != *length))
                return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
            contentLength = length;
        }
    }
    head = {status, contentLength, HeaderOf(easy, "Location")};
    return ERROR_SUCCESS;
}

} // namespace Quendra::Platform
