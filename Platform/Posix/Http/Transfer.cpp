/// @file
/// The states of an exchange and what moves it on:
///
///     connecting --OnConnected--> sending --final header block--> receiving --curl is done--> over
///         |                          |                                |                         ^
///         +--------------------------+--- failure, timeout, closing --+-------------------------+
///
/// A request whose body is announced but not at hand pauses in "sending" (OnSend finds nothing) until `Write` brings
/// bytes; a reply that nobody reads pauses in "receiving" (OnBody finds the buffer full) until `Take` makes room. When an
/// exchange is over its lane goes back at once; the bytes that have come can still be taken.

#include "Transfer.h"

#include "CurlErrors.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace
{
using Clock = std::chrono::steady_clock;

/// What one receive from the system may bring.
constexpr long kReceiveBytes = 128 * 1024;

/// Bytes of a reply's body that wait for the caller; beyond this the server has to wait.
constexpr std::size_t kMaxBuffered = 256 * 1024;

/// Bytes of a request's body that are collected before they go out. Callers write in small blocks, and each send costs the same
/// system calls and wakes the server up, however short it is.
constexpr std::size_t kCollectedBytes = 256 * 1024;

/// How long curl is left alone at most; it wakes up earlier for all that concerns it.
constexpr int kLongestPoll = 60'000;

constexpr long kUnlimited = std::numeric_limits<int>::max();

bool IsBlankLine(std::string_view line)
{
    return line == "\r\n" || line == "\n";
}

std::optional<std::string> HeaderOf(CURL* easy, const char* name)
{
    curl_header* header = nullptr;
    if (curl_easy_header(easy, name, 0, CURLH_HEADER, -1, &header) != CURLHE_OK)
    {
        return std::nullopt;
    }
    return std::string(header->value);
}
} // namespace

Transfer::Transfer(LanePool::Borrowed lane, const TransferRequest& request, Interruption& interruption)
    : m_lane(std::move(lane)),
      m_interruption(interruption),
      m_body(request.body),
      m_bodyLeft(request.bodyLength.value_or(0) - request.body.size())
{
    curl_easy_reset(m_lane->Easy());
    SetConnection(request);
    SetRequest(request);
    SetCallbacks();
    if (curl_multi_add_handle(m_lane->Multi(), m_lane->Easy()) != CURLM_OK)
    {
        throw std::bad_alloc();
    }
    m_interruption.SetDriven(m_lane->Multi());
}

Transfer::~Transfer()
{
    Finish(ERROR_WINHTTP_OPERATION_CANCELLED);
}

template <class Value> void Transfer::Set(CURLoption option, Value value)
{
    // The options and values are this file's own: what can go wrong is memory.
    if (curl_easy_setopt(m_lane->Easy(), option, value) != CURLE_OK) // NOLINT(cppcoreguidelines-pro-type-vararg)
    {
        throw std::bad_alloc();
    }
}

void Transfer::SetConnection(const TransferRequest& request)
{
    Set(CURLOPT_URL, request.url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_PATH_AS_IS, 1L);
    Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // Signals belong to the process; curl's writes do not raise SIGPIPE.
    Set(CURLOPT_NOSIGNAL, 1L);
    // A name resolution that hangs does not hold up the closing of its request.
    Set(CURLOPT_QUICK_EXIT, 1L);
    Set(CURLOPT_CONNECTTIMEOUT_MS, request.connectTimeout > 0 ? static_cast<long>(request.connectTimeout) : kUnlimited);
    Set(CURLOPT_BUFFERSIZE, kReceiveBytes);
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
    if (request.bodyLength)
    {
        // For every verb: this way curl adds nothing but the length.
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
    Set(CURLOPT_SEEKFUNCTION, &Transfer::OnRewind);
    Set(CURLOPT_SEEKDATA, static_cast<void*>(this));
    Set(CURLOPT_HEADERFUNCTION, &Transfer::OnHeader);
    Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    Set(CURLOPT_WRITEFUNCTION, &Transfer::OnBody);
    Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
}

DWORD Transfer::Start(int timeout)
{
    return RunUntil([this] { return m_connected && (m_bodySent == m_body.size() || RefusesBody()); }, timeout);
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
    const DWORD error = RunUntil([this] { return (IsHandedOver() && !m_over) || RefusesBody(); }, timeout);
    m_outgoing = {};
    if (isDue)
        m_collected.clear();
    return error;
}

DWORD Transfer::AwaitHead(int timeout)
{
    // Collected bytes of a body whose sender has given up; there are none otherwise.
    m_outgoing = {m_collected, {}};
    ResumeSending();
    return RunUntil([this] { return m_hasHead; }, timeout);
}

DWORD Transfer::AwaitBody(int timeout)
{
    if (Buffered() != 0)
    {
        return ERROR_SUCCESS;
    }
    if (m_receivePaused && !m_over)
    {
        m_receivePaused = false;
        Resume();
    }
    // To curl an exchange is not over before the whole request is sent, but its sender may have given up.
    const auto isUnevenlyComplete = [this] { return m_bodyLeft != 0 && IsReplyComplete(); };
    const DWORD error = RunUntil([&] { return Buffered() != 0 || m_over || isUnevenlyComplete(); }, timeout);
    if (error != ERROR_SUCCESS)
    {
        return error;
    }
    if (Buffered() == 0 && !m_over)
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

/// Drives the lane until the condition holds, the exchange ends, nothing has moved for the timeout, or the request's handle
/// is closed.
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
        if (m_over)
        {
            return m_error != ERROR_SUCCESS ? m_error : ERROR_WINHTTP_CONNECTION_ERROR;
        }
        int running = 0;
        if (curl_multi_perform(m_lane->Multi(), &running) != CURLM_OK)
        {
            Finish(ERROR_WINHTTP_INTERNAL_ERROR);
            continue;
        }
        CollectResult();
        if (m_over || condition())
        {
            continue;
        }
        const auto now = Clock::now();
        if (MovedBytes())
        {
            lastMove = now;
            continue;
        }
        // Until there is a connection curl keeps the time.
        int wait = kLongestPoll;
        if (m_connected && timeout > 0)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(lastMove - now).count() + timeout;
            if (left <= 0)
            {
                Finish(ERROR_WINHTTP_TIMEOUT);
                continue;
            }
            wait = static_cast<int>(std::min<std::int64_t>(left, kLongestPoll));
        }
        curl_multi_poll(m_lane->Multi(), nullptr, 0, wait, nullptr);
    }
}

/// Whether bytes went either way since the last time.
bool Transfer::MovedBytes()
{
    curl_off_t uploaded = 0;
    curl_easy_getinfo(m_lane->Easy(), CURLINFO_SIZE_UPLOAD_T, &uploaded); // NOLINT(cppcoreguidelines-pro-type-vararg)
    const bool moved = std::exchange(m_moved, false) || uploaded != m_uploaded;
    m_uploaded = uploaded;
    return moved;
}

void Transfer::CollectResult()
{
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_lane->Multi(), &left))
    {
        if (message->msg == CURLMSG_DONE)
        {
            const CURLcode result = message->data.result;
            // A refusal may come with a connection that breaks under what is still being sent; the reply counts.
            Finish(m_error != ERROR_SUCCESS ? m_error : IsReplyComplete() ? ERROR_SUCCESS : Win32ErrorOf(result));
            return;
        }
    }
}

void Transfer::ResumeSending()
{
    if (m_sendPaused && !m_over)
    {
        m_sendPaused = false;
        Resume();
    }
}

/// Lets curl go on in the directions that are not paused. Bytes that curl kept back come out of this call.
void Transfer::Resume()
{
    curl_easy_pause(m_lane->Easy(), (m_sendPaused ? CURLPAUSE_SEND : 0) | (m_receivePaused ? CURLPAUSE_RECV : 0));
}

/// Ends the exchange, once, and gives the lane back. A connection in the middle of something is closed by curl.
void Transfer::Finish(DWORD error) noexcept
{
    if (m_over)
    {
        return;
    }
    m_over = true;
    m_error = error;
    m_interruption.SetDriven(nullptr);
    curl_multi_remove_handle(m_lane->Multi(), m_lane->Easy());
    curl_easy_reset(m_lane->Easy());
    m_lane.reset();
}

/// Whether curl has taken all that `Write` gave out.
bool Transfer::IsHandedOver() const noexcept
{
    return m_outgoing[0].empty() && m_outgoing[1].empty();
}

/// Whether a final reply came that makes the rest of the body pointless; curl sends no more of it then.
bool Transfer::RefusesBody() const noexcept
{
    constexpr long kFirstRefusal = 300;
    return m_hasHead && (m_head.status >= kFirstRefusal || m_over);
}

/// Whether all bytes that the reply announced are here.
bool Transfer::IsReplyComplete() const noexcept
{
    std::uint64_t announced = 0;
    if (!m_hasHead || !m_head.contentLength)
    {
        return false;
    }
    const auto& text = *m_head.contentLength;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), announced);
    return error == std::errc() && stop == text.data() + text.size() && m_replyReceived >= announced;
}

int Transfer::OnConnected(void* self, char*, char*, int, int) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.m_connected = true;
    transfer.m_moved = true;
    return CURL_PREREQFUNC_OK;
}

std::size_t Transfer::OnSend(char* target, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    std::size_t sent = 0;
    const auto send = [&](std::string_view& source) {
        const auto moved = std::min(size * count - sent, source.size());
        if (moved == 0)
            return;
        std::memcpy(target + sent, source.data(), moved);
        source.remove_prefix(moved);
        sent += moved;
    };
    if (auto kept = transfer.m_body.substr(transfer.m_bodySent); !kept.empty())
    {
        send(kept);
        transfer.m_bodySent += sent;
    }
    else
    {
        for (auto& source : transfer.m_outgoing)
            send(source);
        transfer.m_streamed = transfer.m_streamed || sent != 0;
    }
    if (sent == 0)
    {
        transfer.m_sendPaused = true;
        return CURL_READFUNC_PAUSE;
    }
    transfer.m_moved = true;
    return sent;
}

/// A kept connection turned out to be dead, and curl starts again on a new one.
int Transfer::OnRewind(void* self, curl_off_t offset, int origin) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    if (offset != 0 || origin != SEEK_SET || transfer.m_streamed)
    {
        return CURL_SEEKFUNC_FAIL;
    }
    transfer.m_bodySent = 0;
    return CURL_SEEKFUNC_OK;
}

std::size_t Transfer::OnHeader(const char* line, std::size_t size, std::size_t count, void* self) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    transfer.m_moved = true;
    // Lines after the head are a chunked body's trailers.
    if (!transfer.m_hasHead && IsBlankLine({line, size * count}))
    {
        try
        {
            transfer.ReadHead();
        }
        catch (...)
        {
            transfer.m_error = ERROR_NOT_ENOUGH_MEMORY;
            return 0;
        }
    }
    return size * count;
}

/// A header block has ended. Those of 100 to 199 only announce another one.
void Transfer::ReadHead()
{
    constexpr long kSwitchingProtocols = 101;
    CURL* const easy = m_lane->Easy();
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status); // NOLINT(cppcoreguidelines-pro-type-vararg)
    if (status / 100 == 1 && status != kSwitchingProtocols)
    {
        return;
    }
    m_head = {status, HeaderOf(easy, "Content-Length"), HeaderOf(easy, "Location")};
    m_hasHead = true;
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
    catch (...)
    {
        transfer.m_error = ERROR_NOT_ENOUGH_MEMORY;
        return length == 0 ? 1 : 0;
    }
    transfer.m_replyReceived += length;
    return length;
}
