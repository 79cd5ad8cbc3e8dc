#pragma once

/// @file
/// One exchange with a server over a pooled connection. It has no thread of its own: each operation drives the curl handle only until what
/// it waits for has happened.

#include "../Secret.h"
#include "../WinHttp.h"
#include "ConnectionPool.h"
#include "Interruption.h"
#include "ReplyHead.h"
#include "StatusNotices.h"

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
    SecretText url;
    std::string verb;
    std::vector<SecretText> headerLines;
    SecretText cookies;                      ///< "name=value; name=value", in addition to those that the server has set
    std::optional<std::uint64_t> bodyLength; ///< none: the request has no body and states no length
    int connectTimeout = 0;                  ///< milliseconds from the start to a connection, 0: no limit
    std::string certificateFile;             ///< empty: the system's
    std::string certificateFolder;           ///< empty: the system's
};

class Transfer
{
public:
    /// @param notices  null where nobody listens.
    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses an option
    Transfer(ConnectionPool::Borrowed connection, CURLSH* share, const TransferRequest& request, Interruption& interruption,
             std::unique_ptr<StatusNotices> notices);
    ~Transfer();

    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Each of these blocks and returns 0 or an error value. A timeout is in milliseconds without progress, 0: no limit. An
    // error ends the exchange; later operations return it again.

    /// Connects and hands over the headers and the first bytes of the body.
    DWORD Start(std::string_view body, int timeout);

    /// Sends bytes of the body. Short writes are collected; the last write sends all that is left. If the server has already refused the
    /// request, the bytes count as sent: its reply gives the reason.
    DWORD Write(std::string_view bytes, int timeout);

    /// Waits for the headers of the final reply.
    DWORD AwaitHead(int timeout);

    /// Waits until bytes of the reply's body are available (`Buffered`) or the reply has ended.
    DWORD AwaitBody(int timeout);

    /// The headers of the reply, after `AwaitHead`.
    const ReplyHead& Head() const noexcept { return *m_head; }

    /// Bytes of the announced body that were not written yet.
    std::uint64_t BodyLeft() const noexcept { return m_bodyLeft; }

    std::size_t Buffered() const noexcept { return m_reply.size() - m_replyRead; }

    /// Takes bytes of the reply's body.
    std::size_t Take(char* target, std::size_t capacity) noexcept;

private:
    enum class Phase
    {
        Connecting,
        Connected,
        Over,
    };
    struct EasyCleanup
    {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct ListCleanup
    {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    static int OnConnected(void* self, char*, char*, int, int) noexcept;
    static std::size_t OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t OnBody(const char* bytes, std::size_t size, std::size_t count, void* self) noexcept;

    template <class Value> void Set(CURLoption option, Value value);
    void SetConnection(const TransferRequest& request, CURLSH* share);
    void SetRequest(const TransferRequest& request);
    void SetCallbacks();

    template <class Condition> DWORD RunUntil(Condition condition, int timeout);
    bool MovedBytes();
    void CollectResult();
    DWORD OutcomeOf(CURLcode result);
    bool TakeProxyRefusal();
    void ResumeSending();
    void Resume();
    void Finish(DWORD error) noexcept;

    bool IsHandedOver() const noexcept;
    bool RefusesBody() const noexcept;
    bool IsReplyComplete() const noexcept;

    ConnectionPool::Borrowed m_connection;
    Interruption& m_interruption;
    std::array<char, CURL_ERROR_SIZE> m_errorText = {};
    std::unique_ptr<curl_slist, ListCleanup> m_headerLines;
    const std::unique_ptr<StatusNotices> m_notices;
    std::unique_ptr<CURL, EasyCleanup> m_easy; // destroyed before what it uses

    Phase m_phase = Phase::Connecting;
    DWORD m_error = ERROR_SUCCESS;

    // Sending.
    const bool m_isRepeatable;
    std::array<std::string_view, 2> m_outgoing; // handed to curl, but not taken yet: the collected bytes, and the last write
    SecretText m_collected;                     // written, but not yet handed to curl
    bool m_sendPaused = false;
    std::uint64_t m_bodyLeft = 0;

    // Receiving.
    std::optional<ReplyHead> m_head;
    std::size_t m_headerBytes = 0;
    bool m_receivePaused = false;
    SecretBytes m_reply;
    std::size_t m_replyRead = 0;
    std::uint64_t m_replyReceived = 0;

    bool m_moved = false;
    curl_off_t m_uploaded = 0;
};
