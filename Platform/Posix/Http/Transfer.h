#pragma once

/// @file
/// One exchange with a server over a pooled connection. It has no thread of its own: each operation drives the curl handle only until what
/// it waits for has happened.

#include "ConnectionPool.h"
#include "EasyHandle.h"
#include "IncomingReply.h"
#include "Interruption.h"
#include "OutgoingBody.h"
#include "StatusNotices.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Quendra::Platform
{

class Transfer
{
public:
    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses an option
    Transfer(ConnectionPool::Borrowed connection, CURLSH* share, const TransferRequest& request, Interruption& interruption,
             StatusNotices notices);
    ~Transfer();

    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Each of these blocks and returns 0 or an error value. A timeout is in milliseconds without progress, 0: no limit. An
    // error ends the exchange; later operations return it again.

    /// Connects and sends the headers and the first bytes of the body.
    DWORD Start(std::string_view body, int timeout);

    /// Sends bytes of the body. Short writes are collected; the last write sends all that is left. If the server has already refused the
    /// request, the bytes count as sent: its reply gives the reason.
    DWORD Write(std::string_view bytes, int timeout);

    /// Waits for the headers of the final reply.
    DWORD AwaitHead(int timeout);

    /// Waits until bytes of the reply's body are available (`Buffered`) or the reply has ended.
    DWORD AwaitBody(int timeout);

    /// The headers of the reply, after `AwaitHead`.
    const ReplyHead& Head() const noexcept { return *m_incoming.Head(); }

    /// Bytes of the announced body that were not written yet.
    std::uint64_t RequestBodyLeft() const noexcept { return m_outgoing.Left(); }

    std::size_t Buffered() const noexcept { return m_incoming.Buffered(); }

    /// Takes bytes of the reply's body.
    std::size_t Take(char* target, std::size_t capacity) noexcept { return m_incoming.Take(target, capacity); }

private:
    enum class Phase
    {
        Connecting,
        Connected,
        Over,
    };

    static int OnAboutToSend(void* self, char*, char*, int, int) noexcept;

    template <typename Condition> DWORD RunUntil(Condition condition, int timeout);
    std::uint64_t Progress() const noexcept;
    void CollectResult();
    DWORD OutcomeOf(CURLcode result);
    bool TakeProxyRefusal();
    bool TakesNoMoreBody() const noexcept;
    bool IsRefused() const noexcept;
    void Resume();
    void Finish(DWORD error) noexcept;

    ConnectionPool::Borrowed m_connection;
    Interruption& m_interruption;
    StatusNotices m_notices;
    OutgoingBody m_outgoing;
    IncomingReply m_incoming;
    std::unique_ptr<EasyHandle> m_easy; // destroyed before what it uses

    const bool m_isRepeatable;
    const bool m_hasReplyBody;
    unsigned m_timesConnected = 0;
    Phase m_phase = Phase::Connecting;
    DWORD m_error = ERROR_SUCCESS;
};

} // namespace Quendra::Platform
