#include "IncomingReply.h"

#include "../../Ascii.h"
#include "../CallGuard.h"
#include "RequestHeaders.h"

#include <algorithm>
#include <cstring>

namespace Quendra::Platform
{

namespace
{

// The most bytes of the body that are buffered for the caller; beyond this, receiving pauses.
constexpr std::size_t kMaxBuffered = 256 * 1024;

// The most bytes of all header lines, including interim replies and trailers.
constexpr std::uint64_t kMaxHeaderBytes = 256 * 1024;

bool IsBlankLine(std::string_view line)
{
    return line == "\r\n" || line == "\n";
}

// A server that sends more headers of one name than this is refused: curl looks through all headers for each.
constexpr std::size_t kMostOfOneName = 100;

// The value of a header by name and index; nothing if there are fewer of that name.
std::optional<SecretText> HeaderOf(CURL* easy, const char* name, std::size_t index = 0)
{
    curl_header* header = nullptr;
    if (curl_easy_header(easy, name, index, CURLH_HEADER, -1, &header) != CURLHE_OK)
        return std::nullopt;
    return SecretText(header->value);
}

// Reads the header block that has just ended on an easy handle. The head stays empty for an interim reply, such as one with status 1xx:
// another header block follows. Returns an error if the body's length is not a number, or there is more than one, or if the body has
// another coding than "chunked": none was asked for, and its end would be unclear.
DWORD ReadReplyHead(CURL* easy, std::optional<ReplyHead>& head)
{
    constexpr long kSwitchingProtocols = 101;
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status); // NOLINT(cppcoreguidelines-pro-type-vararg)
    head.reset();
    if (status / 100 == 1 && status != kSwitchingProtocols)
        return ERROR_SUCCESS;
    bool isChunked = false;
    for (std::size_t index = 0; const auto coding = HeaderOf(easy, "Transfer-Encoding", index); ++index)
    {
        if (index == kMostOfOneName || !EqualIgnoringAsciiCase(*coding, "chunked"))
            return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
        isChunked = true;
    }
    std::optional<std::uint64_t> contentLength;
    for (std::size_t index = 0; const auto text = isChunked ? std::nullopt : HeaderOf(easy, kContentLength, index); ++index)
    {
        const auto length = ParseContentLength(*text);
        if (index == kMostOfOneName || !length || (contentLength && *contentLength != *length))
            return ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
        contentLength = length;
    }
    head = {status, contentLength, isChunked, HeaderOf(easy, "Location")};
    return ERROR_SUCCESS;
}

} // namespace

void IncomingReply::AttachTo(EasyHandle& easy)
{
    m_easy = easy.Get();
    easy.Set(CURLOPT_HEADERFUNCTION, &IncomingReply::OnHeader);
    easy.Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    easy.Set(CURLOPT_WRITEFUNCTION, &IncomingReply::OnBody);
    easy.Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
}

void IncomingReply::Replace(long status, std::string_view body)
{
    m_buffer.assign(body);
    m_head = ReplyHead{.status = status, .contentLength = {}, .location = {}};
}

bool IncomingReply::EndsWithConnection() const noexcept
{
    constexpr long kNoContent = 204;
    constexpr long kNotModified = 304;
    return m_head && !m_head->contentLength && !m_head->isChunked && m_head->status != kNoContent && m_head->status != kNotModified;
}

std::size_t IncomingReply::Take(char* target, std::size_t capacity) noexcept
{
    const auto count = std::min(capacity, Buffered());
    if (count != 0)
    {
        std::memcpy(target, m_buffer.data() + m_bufferRead, count);
        m_bufferRead += count;
    }
    if (m_bufferRead == m_buffer.size())
    {
        m_buffer.clear();
        m_bufferRead = 0;
    }
    return count;
}

std::size_t IncomingReply::OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& reply = *static_cast<IncomingReply*>(self);
    const std::size_t length = size * count;
    reply.m_headerBytes += length;
    if (reply.m_headerBytes > kMaxHeaderBytes)
        reply.m_error = ERROR_WINHTTP_INVALID_SERVER_RESPONSE;
    // Lines after the head are a chunked body's trailers.
    else if (!reply.m_head && IsBlankLine({line, length}))
        reply.m_error = ErrorOf([&] { return ReadReplyHead(reply.m_easy, reply.m_head); });
    return reply.m_error == ERROR_SUCCESS ? length : 0;
}

std::size_t IncomingReply::OnBody(const char* bytes, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& reply = *static_cast<IncomingReply*>(self);
    const std::size_t length = size * count;
    if (reply.Buffered() != 0 && reply.Buffered() + length > kMaxBuffered)
    {
        reply.m_isPaused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    reply.m_error = ErrorOf([&]() -> DWORD {
        reply.m_buffer.append(bytes, length);
        return ERROR_SUCCESS;
    });
    if (reply.m_error != ERROR_SUCCESS)
        return length == 0 ? 1 : 0;
    reply.m_bodyBytes += length;
    return length;
}

} // namespace Quendra::Platform
