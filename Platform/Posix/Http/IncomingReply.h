#pragma once

/// @file
/// The receiving half of an exchange: the reply's head, and its body as far as it is buffered.

#include "../WinHttp.h"
#include "EasyHandle.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Quendra::Platform
{

/// What the transport evaluates of a reply's status and headers.
struct ReplyHead
{
    long status = 0;
    std::optional<std::uint64_t> contentLength; ///< empty if the body is chunked
    bool isChunked = false;
    std::optional<SecretText> location; ///< may hold the session token, as the path that was asked for
};

/// Buffers what curl delivers until the caller takes it. Receiving is paused while the buffer is full.
class IncomingReply
{
public:
    /// Sets curl's callbacks. This object must outlive the easy handle.
    void AttachTo(EasyHandle& easy);

    /// Sets a reply that curl does not deliver: that of a proxy.
    void Replace(long status, std::string_view body);

    /// The head of the final reply, once it has arrived.
    const std::optional<ReplyHead>& Head() const noexcept { return m_head; }

    /// Whether the announced length has arrived.
    bool IsComplete() const noexcept { return m_head && m_head->contentLength && m_bodyBytes >= *m_head->contentLength; }

    /// Whether there is a body that only the end of the connection ends.
    bool EndsWithConnection() const noexcept;

    std::size_t Buffered() const noexcept { return m_buffer.size() - m_bufferRead; }

    /// Takes bytes of the body.
    std::size_t Take(char* target, std::size_t capacity) noexcept;

    /// The bytes of header lines and body that have arrived.
    std::uint64_t Received() const noexcept { return m_headerBytes + m_bodyBytes; }

    /// Why the reply was not accepted; 0 if it was.
    DWORD Error() const noexcept { return m_error; }

    bool IsPaused() const noexcept { return m_isPaused; }
    /// @return whether it was paused.
    bool Unpause() noexcept { return std::exchange(m_isPaused, false); }

private:
    static std::size_t OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t OnBody(const char* bytes, std::size_t size, std::size_t count, void* self) noexcept;

    CURL* m_easy = nullptr;
    std::optional<ReplyHead> m_head;
    std::uint64_t m_headerBytes = 0;
    std::uint64_t m_bodyBytes = 0;
    SecretText m_buffer;
    std::size_t m_bufferRead = 0;
    DWORD m_error = ERROR_SUCCESS;
    bool m_isPaused = false;
};

} // namespace Quendra::Platform
