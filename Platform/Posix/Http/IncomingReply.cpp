#include "IncomingReply.h"

#include "../CallGuard.h"

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
    m_head = ReplyHead{status, std::nullopt, std::nullopt};
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
