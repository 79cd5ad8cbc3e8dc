#pragma once

/// @file
/// One exchange with a server over a borrowed lane, driven by whoever calls: each operation runs the lane's curl handle
/// until what it waits for has happened, and no longer.

#include "../WinHttp.h"
#include "Interruption.h"
#include "Lane.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What an exchange sends.
struct TransferRequest
{
    std::string url;
    std::string verb;
    std::vector<std::string> headerLines;
    std::optional<std::uint64_t> bodyLength; ///< none: the request has no body and states no length
    std::string_view body;                   ///< the first bytes of the body, which outlive the exchange; the rest is written later
    int connectTimeout = 0;                  ///< milliseconds from the start to a connection, 0: no limit
    std::string certificateFile;             ///< empty: the system's
    std::string certificateFolder;           ///< empty: the system's
};

/// What is known of a reply when its headers have come.
struct ReplyHead
{
    long status = 0;
    std::optional<std::string> contentLength;
    std::optional<std::string> location;
};

class Transfer
{
public:
    /// @throws std::bad_alloc
    Transfer(LanePool::Borrowed lane, const TransferRequest& request, Interruption& interruption);
    ~Transfer();

    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Each of these blocks and returns 0 or an error value. A timeout is in milliseconds without progress, 0: no limit. An
    // error ends the exchange; later operations return it again.

    /// Connects and hands over the headers and the body that the request came with.
    DWORD Start(int timeout);

    /// Hands over bytes of the body; short writes go out together, the last one with all that is left. Bytes that the server no longer
    /// waits for, because it has refused already, count as handed over: its reply tells the rest.
    DWORD Write(std::string_view bytes, int timeout);

    /// Waits for the headers of the final reply.
    DWORD AwaitHead(int timeout);

    /// Waits until bytes of the reply's body are here (`Buffered`) or it is over.
    DWORD AwaitBody(int timeout);

    /// What `AwaitHead` has waited for.
    const ReplyHead& Head() const noexcept { return m_head; }

    /// Bytes of the announced body that were not handed to `Write` yet.
    std::uint64_t BodyLeft() const noexcept { return m_bodyLeft; }

    std::size_t Buffered() const noexcept { return m_reply.size() - m_replyRead; }

    /// Takes bytes of the reply's body.
    std::size_t Take(char* target, std::size_t capacity) noexcept;

private:
    struct ListCleanup
    {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    static int OnConnected(void* self, char*, char*, int, int) noexcept;
    static std::size_t OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept;
    static int OnRewind(void* self, curl_off_t offset, int origin) noexcept;
    static std::size_t OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t OnBody(const char* bytes, std::size_t size, std::size_t count, void* self) noexcept;

    template <class Value> void Set(CURLoption option, Value value);
    void SetConnection(const TransferRequest& request);
    void SetRequest(const TransferRequest& request);
    void SetCallbacks();

    template <class Condition> DWORD RunUntil(Condition condition, int timeout);
    bool MovedBytes();
    void CollectResult();
    void ResumeSending();
    void Resume();
    void Finish(DWORD error) noexcept;

    bool IsHandedOver() const noexcept;
    bool RefusesBody() const noexcept;
    bool IsReplyComplete() const noexcept;
    void ReadHead();

    LanePool::Borrowed m_lane;
    Interruption& m_interruption;
    std::unique_ptr<curl_slist, ListCleanup> m_headerLines;

    bool m_connected = false;
    bool m_over = false;
    DWORD m_error = ERROR_SUCCESS;

    // The way there. What the request came with is kept for a connection that turns out to be dead.
    std::string_view m_body;
    std::size_t m_bodySent = 0;
    std::string m_collected;                    // written, not given out yet
    std::array<std::string_view, 2> m_outgoing; // given out, not taken by curl yet: what was collected, and the last write
    bool m_streamed = false;
    bool m_sendPaused = false;
    std::uint64_t m_bodyLeft = 0;

    // The way back.
    ReplyHead m_head;
    bool m_hasHead = false;
    bool m_receivePaused = false;
    std::vector<char> m_reply;
    std::size_t m_replyRead = 0;
    std::uint64_t m_replyReceived = 0;

    bool m_moved = false;
    curl_off_t m_uploaded = 0;
};
