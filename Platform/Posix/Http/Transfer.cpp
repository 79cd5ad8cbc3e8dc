/// @file
/// The phases of an exchange and their transitions:
///
///     connecting --OnConnected--> connected --curl is done--> over
///         |                           |                        ^
///         +---------------------------+--- failure, timeout, --+
///                                          closing
///
/// A request pauses while its announced body is not available (OnSend has no bytes), until `Write` supplies some. A reply pauses while
/// nobody reads it (OnBody has no room), until `AwaitBody` finds the buffer empty. A finished exchange returns its connection at once;
/// bytes already received can still be taken.
///
/// A kept connection may turn out to be closed when a request is sent on it. It is then unknown whether the server has received the
/// request. curl repeats it on a new connection, which is safe for GET and HEAD only. Every other request fails, and therefore only uses
/// connections so recent that the server has not closed them yet.

#include "Transfer.h"

#include "CurlErrors.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace
{
using Clock = std::chrono::steady_clock;

/// The most bytes that one receive takes.
constexpr long kReceiveBytes = 128 * 1024;

/// The most bytes of a reply's body that are buffered for the caller; beyond this, receiving pauses.
constexpr std::size_t kMaxBuffered = 256 * 1024;

/// The most bytes of all header lines of a reply, including interim replies and trailers.
constexpr std::size_t kMaxHeaderBytes = 256 * 1024;

/// The number of body bytes that are collected before they are sent. Callers write in small blocks, and each send costs the same system
/// calls and wakes the server up, however short it is.
constexpr std::size_t kCollectedBytes = 256 * 1024;

/// A request that must not be sent twice uses only a kept connection that was last used within this time: servers close idle connections
/// after 5 seconds or more.
constexpr std::chrono::seconds kYoung(3);

/// The longest wait for curl, in milliseconds; sockets and curl's own timers end it earlier.
constexpr int kLongestPoll = 60'000;

constexpr long kUnlimited = std::numeric_limits<int>::max();

// Seconds of silence before a TCP keep-alive probe, and between probes.
constexpr long kProbeAfter = 30;
constexpr long kProbeEach = 10;

bool IsBlankLine(std::string_view line)
{
    return line == "\r\n" || line == "\n";
}
} // namespace

Transfer::Transfer(ConnectionPool::Borrowed connection, CURLSH* share, const TransferRequest& request, Interruption& interruption,
                   std::unique_ptr<StatusNotices> notices)
    : m_connection(std::move(connection)),
      m_interruption(interruption),
      m_notices(std::move(notices)),
      m_easy(curl_easy_init()),
      m_isRepeatable(!request.bodyLength && (request.verb == "GET" || request.verb == "HEAD")),
      m_bodyLeft(request.bodyLength.value_or(0))
{
    if (!m_easy)
    {
        throw std::bad_alloc();
    }
    SetConnection(request, share);
    SetRequest(request);
    SetCallbacks();
    if (m_notices)
        m_notices->AttachTo(m_easy.get());
    if (curl_multi_add_handle(m_connection->Multi(), m_easy.get()) != CURLM_OK)
    {
        throw std::bad_alloc();
    }
    m_interruption.SetDriven(m_connection->Multi());
}

Transfer::~Transfer()
{
    Finish(ERROR_WINHTTP_OPERATION_CANCELLED);
}

template <class Value> void Transfer::Set(CURLoption option, Value value)
{
    const CURLcode result = curl_easy_setopt(m_easy.get(), option, value); // NOLINT(cppcoreguidelines-pro-type-vararg)
    if (result == CURLE_OUT_OF_MEMORY)
    {
        throw std::bad_alloc();
    }
    if (result != CURLE_OK)
    {
        throw std::runtime_error(curl_easy_strerror(result));
    }
}

void Transfer::SetConnection(const TransferRequest& request, CURLSH* share)
{
    Set(CURLOPT_SHARE, share);
    Set(CURLOPT_URL, request.url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_PATH_AS_IS, 1L);
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // Signal handlers belong to the process, so curl must not set any. Its writes do not raise SIGPIPE.
    Set(CURLOPT_NOSIGNAL, 1L);
    // Closing a request does not wait for its name resolution.
    Set(CURLOPT_QUICK_EXIT, 1L);
    Set(CURLOPT_CONNECTTIMEOUT_MS, request.connectTimeout > 0 ? static_cast<long>(request.connectTimeout) : kUnlimited);
    Set(CURLOPT_TCP_KEEPALIVE, 1L);
    Set(CURLOPT_TCP_KEEPIDLE, kProbeAfter);
    Set(CURLOPT_TCP_KEEPINTVL, kProbeEach);
    Set(CURLOPT_BUFFERSIZE, kReceiveBytes);
    Set(CURLOPT_FRESH_CONNECT, !m_isRepeatable && m_connection->IdleTime() >= kYoung ? 1L : 0L);
    Set(CURLOPT_ERRORBUFFER, m_errorText.data());
    if (!request.certificateFile.empty())
    {
        Set(CURLOPT_CAINFO, request.certificateFile.c_str());
    }
    if (!request.certificateFolder.empty())
    {
        Set(CURLOPT_CAPATH, request.certificateFolder.c_str());
    }
}

void Transfer::SetRequest(const TransferRequest& request)
{
    for (const auto& line : request.headerLines)
    {
        curl_slist* const longer = curl_slist_append(m_headerLines.get(), line.c_str());
        if (longer == nullptr)
        {
            throw std::bad_alloc();
        }
        static_cast<void>(m_headerLines.release());
        m_headerLines.reset(longer);
    }
    Set(CURLOPT_HTTPHEADER, m_headerLines.get());
    // Names no file, but enables curl's cookie engine.
    Set(CURLOPT_COOKIEFILE, "");
    if (!request.cookies.empty())
    {
        Set(CURLOPT_COOKIE, request.cookies.c_str());
    }
    if (request.bodyLength)
    {
        // For every verb: curl then adds only the length header.
        Set(CURLOPT_UPLOAD, 1L);
        Set(CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(kCollectedBytes));
        Set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(*request.bodyLength));
    }
    else if (request.verb == "HEAD")
    {
        Set(CURLOPT_NOBODY, 1L);
    }
    Set(CURLOPT_CUSTOMREQUEST, request.verb.c_str());
}

void Transfer::SetCallbacks()
{
    Set(CURLOPT_PREREQFUNCTION, &Transfer::OnConnected);
    Set(CURLOPT_PREREQDATA, static_cast<void*>(this));
    Set(CURLOPT_READFUNCTION, &Transfer::OnSend);
    Set(CURLOPT_READDATA, static_cast<void*>(this));
    Set(CURLOPT_HEADERFUNCTION, &Transfer::OnHeader);
    Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    Set(CURLOPT_WRITEFUNCTION, &Transfer::OnBody);
    Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
}

DWORD Transfer::Start(std::string_view body, int timeout)
{
    m_outgoing = {body, {}};
    m_bodyLeft -= body.size();
    const DWORD error = RunUntil([this] { return (m_phase == Phase::Connected && IsHandedOver()) || RefusesBody(); }, timeout);
    m_outgoing = {};
    if (m_notices && error == ERROR_SUCCESS)
        m_notices->RequestSent();
    return error;
}

DWORD Transfer::Write(std::string_view bytes, int timeout)
{
    const bool isDue = m_collected.size() + bytes.size() >= kCollectedBytes || bytes.size() == m_bodyLeft;
    if (isDue)
    {
        m_outgoing = {m_collected, bytes};
        ResumeSending();
    }
    else
    {
        m_collected.append(bytes);
    }
    m_bodyLeft -= bytes.size();
    const DWORD error = RunUntil([this] { return (IsHandedOver() && m_phase != Phase::Over) || RefusesBody(); }, timeout);
    m_outgoing = {};
    if (isDue)
        m_collected.clear();
    return error;
}

DWORD Transfer::AwaitHead(int timeout)
{
    // Sends what was collected from a sender that stopped early; otherwise there is nothing.
    m_outgoing = {m_collected, {}};
    ResumeSending();
    if (m_notices)
        m_notices->ReceivingResponse();
    const DWORD error = RunUntil([this] { return m_head.has_value(); }, timeout);
    if (m_notices && error == ERROR_SUCCESS)
        m_notices->ResponseReceived(m_headerBytes + Buffered());
    return error;
}

DWORD Transfer::AwaitBody(int timeout)
{
    if (Buffered() != 0)
    {
        return ERROR_SUCCESS;
    }
    if (m_receivePaused && m_phase != Phase::Over)
    {
        m_receivePaused = false;
        Resume();
    }
    // For curl, an exchange ends only when the whole request is sent, but its sender may have stopped early.
    const auto isUnevenlyComplete = [this] { return m_bodyLeft != 0 && IsReplyComplete(); };
    const DWORD error = RunUntil([&] { return Buffered() != 0 || m_phase == Phase::Over || isUnevenlyComplete(); }, timeout);
    if (error != ERROR_SUCCESS)
    {
        return error;
    }
    if (Buffered() == 0 && m_phase != Phase::Over)
    {
        Finish(ERROR_SUCCESS);
    }
    return Buffered() != 0 ? ERROR_SUCCESS : m_error;
}

std::size_t Transfer::Take(char* target, std::size_t capacity) noexcept
{
    const auto count = std::min(capacity, Buffered());
    if (count != 0)
    {
        std::memcpy(target, m_reply.data() + m_replyRead, count);
        m_replyRead += count;
    }
    if (m_replyRead == m_reply.size())
    {
        m_reply.clear();
        m_replyRead = 0;
    }
    return count;
}

/// Drives the exchange until the condition holds, it ends, nothing has moved for the timeout, or the request's handle is
/// closed.
template <class Condition> DWORD Transfer::RunUntil(Condition condition, int timeout)
{
    auto lastMove = Clock::now();
    while (true)
    {
        if (m_interruption.IsRaised())
        {
            Finish(ERROR_WINHTTP_OPERATION_CANCELLED);
            return ERROR_WINHTTP_OPERATION_CANCELLED;
        }
        if (condition())
        {
            return ERROR_SUCCESS;
        }
        if (m_phase == Phase::Over)
        {
            return m_error != ERROR_SUCCESS ? m_error : ERROR_WINHTTP_CONNECTION_ERROR;
        }
        int running = 0;
        if (curl_multi_perform(m_connection->Multi(), &running) != CURLM_OK)
        {
            Finish(ERROR_WINHTTP_INTERNAL_ERROR);
            continue;
        }
        if (m_notices)
            m_notices->Moved();
        CollectResult();
        if (m_phase == Phase::Over || condition())
        {
            continue;
        }
        const auto now = Clock::now();
        if (MovedBytes())
        {
            lastMove = now;
            continue;
        }
        // Until the connection is made, curl enforces the time limit.
        int wait = kLongestPoll;
        if (m_phase == Phase::Connected && timeout > 0)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(lastMove - now).count() + timeout;
            if (left <= 0)
            {
                Finish(ERROR_WINHTTP_TIMEOUT);
                continue;
            }
            wait = static_cast<int>(std::min<std::int64_t>(left, kLongestPoll));
        }
        curl_multi_poll(m_connection->Multi(), nullptr, 0, wait, nullptr);
    }
}

/// Whether bytes were sent or received since the last call.
bool Transfer::MovedBytes()
{
    curl_off_t uploaded = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_SIZE_UPLOAD_T, &uploaded); // NOLINT(cppcoreguidelines-pro-type-vararg)
    const bool moved = std::exchange(m_moved, false) || uploaded != m_uploaded;
    m_uploaded = uploaded;
    return moved;
}

void Transfer::CollectResult()
{
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_connection->Multi(), &left))
    {
        if (message->msg == CURLMSG_DONE)
        {
            Finish(OutcomeOf(message->data.result));
            return;
        }
    }
}

DWORD Transfer::OutcomeOf(CURLcode result)
{
    // A server that refuses may also close the connection while the body is being sent; its reply counts.
    if (m_error != ERROR_SUCCESS || IsReplyComplete() || (m_phase == Phase::Connecting && TakeProxyRefusal()))
    {
        return m_error;
    }
    const DWORD error = Win32ErrorOf(result, m_phase == Phase::Connected, m_errorText.data());
    if (m_notices && error == ERROR_WINHTTP_SECURE_FAILURE)
        m_notices->SecureFailure(result);
    return error;
}

/// Takes the status of a proxy that refuses the tunnel as the reply's. curl keeps that status.
bool Transfer::TakeProxyRefusal()
{
    constexpr long kFirstRefusal = 300;
    constexpr std::string_view kBody = "The proxy refused to connect to the server.";
    long status = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_HTTP_CONNECTCODE, &status); // NOLINT(cppcoreguidelines-pro-type-vararg)
    if (status < kFirstRefusal)
    {
        return false;
    }
    m_reply.assign(kBody.begin(), kBody.end());
    m_head = ReplyHead{status, std::nullopt, std::nullopt};
    return true;
}

void Transfer::ResumeSending()
{
    if (m_sendPaused && m_phase != Phase::Over)
    {
        m_sendPaused = false;
        Resume();
    }
}

/// Lets curl go on in the directions that are not paused. curl delivers bytes that it kept back during this call.
void Transfer::Resume()
{
    curl_easy_pause(m_easy.get(), (m_sendPaused ? CURLPAUSE_SEND : 0) | (m_receivePaused ? CURLPAUSE_RECV : 0));
}

/// Ends the exchange, once, and returns the connection. curl closes one that is in the middle of a message.
void Transfer::Finish(DWORD error) noexcept
{
    if (m_phase == Phase::Over)
    {
        return;
    }
    m_phase = Phase::Over;
    m_error = error;
    m_interruption.SetDriven(nullptr);
    curl_multi_remove_handle(m_connection->Multi(), m_easy.get());
    m_easy.reset();
    m_connection.reset();
}

/// Whether curl has taken all bytes that were handed to it.
bool Transfer::IsHandedOver() const noexcept
{
    return m_outgoing[0].empty() && m_outgoing[1].empty();
}

/// Whether a final reply refuses the rest of the body; curl then stops sending it.
bool Transfer::RefusesBody() const noexcept
{
    constexpr long kFirstRefusal = 300;
    return m_head && (m_head->status >= kFirstRefusal || m_phase == Phase::Over);
}

/// Whether the announced length of the reply has arrived.
bool Transfer::IsReplyComplete() const noexcept
{
    return m_head && m_head->contentLength && m_replyReceived >= *m_head->contentLength;
}

int Transfer::OnConnected(void* self, char*, char*, int, int) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    if (transfer.m_phase == Phase::Connected && !transfer.m_isRepeatable)
    {
        transfer.m_error = ERROR_WINHTTP_CONNECTION_ERROR;
        return CURL_PREREQFUNC_ABORT;
    }
    transfer.m_phase = Phase::Connected;
    transfer.m_moved = true;
    if (transfer.m_notices)
        transfer.m_notices->SendingRequest();
    return CURL_PREREQFUNC_OK;
}

std::size_t Transfer::OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    std::size_t sent = 0;
    for (auto& source : transfer.m_outgoing)
    {
        const auto moved = std::min(size * count - sent, source.size());
        if (moved != 0)
        {
            std::memcpy(target + sent, source.data(), moved);
            source.remove_prefix(moved);
            sent += moved;
        }
    }
    if (sent == 0)
    {
        transfer.m_sendPaused = true;
        return CURL_READFUNC_PAUSE;
    }
    transfer.m_moved = true;
    return sent;
}

std::size_t Transfer::OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    const std::size_t length = size * count;
    transfer.m_moved = true;
    transfer.m_headerBytes += length;
    DWORD error = transfer.m_headerBytes > kMaxHeaderBytes ? ERROR_WINHTTP_INVALID_SERVER_RESPONSE : ERROR_SUCCESS;
    // Lines after the head are a chunked body's trailers.
    if (error == ERROR_SUCCESS && !transfer.m_head && IsBlankLine({line, length}))
    {
        try
        {
            error = ReadReplyHead(transfer.m_easy.get(), transfer.m_head);
        }
        catch (const std::bad_alloc&)
        {
            error = ERROR_NOT_ENOUGH_MEMORY;
        }
    }
    transfer.m_error = error;
    return error == ERROR_SUCCESS ? length : 0;
}

std::size_t Transfer::OnBody(const char* bytes, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    const std::size_t length = size * count;
    transfer.m_moved = true;
    if (transfer.Buffered() != 0 && transfer.Buffered() + length > kMaxBuffered)
    {
        transfer.m_receivePaused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    try
    {
        transfer.m_reply.insert(transfer.m_reply.end(), bytes, bytes + length);
    }
    catch (const std::bad_alloc&)
    {
        transfer.m_error = ERROR_NOT_ENOUGH_MEMORY;
        return length == 0 ? 1 : 0;
    }
    transfer.m_replyReceived += length;
    return length;
}
