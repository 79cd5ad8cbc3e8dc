// The phases of an exchange and their transitions:
//
//     connecting -----------> connected --curl is done--> over
//         |                           |                        ^
//         +---------------------------+--- failure, timeout, --+
//                                          closing
//
// A request pauses while its announced body is not available (`OutgoingBody`), until `Write` supplies some. A reply pauses while
// nobody reads it (`IncomingReply`), until `AwaitBody` finds the buffer empty. A finished exchange returns its connection at once;
// bytes already received can still be taken.
//
// A kept connection may turn out to be closed when a request is sent on it. Unless nothing could be written, it is then unknown whether
// the server has received the request. curl repeats it on a new connection, which is safe for GET and HEAD only. Every other request
// fails, and therefore only uses connections so recent that the server has not closed them yet.

#include "Transfer.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <utility>

namespace Quendra::Platform
{

namespace
{

using Clock = std::chrono::steady_clock;

// A request that must not be sent twice uses only a kept connection that was last used within this time: servers close idle connections
// after 5 seconds or more.
constexpr std::chrono::seconds kSafeIdleTime(3);

// The longest wait for curl, in milliseconds; sockets and curl's own timers end it earlier. An event does not.
constexpr std::int64_t kLongestPoll = 60'000;
constexpr std::int64_t kLongestPollWithEvent = 25;

// The lowest status with which a server does not want the rest of the body.
constexpr long kFirstRefusal = 300;

} // namespace

Transfer::Transfer(ConnectionPool::Borrowed connection, CURLSH* share, const TransferRequest& request, Interruption& interruption,
                   StatusNotices notices)
    : m_connection(std::move(connection)),
      m_interruption(interruption),
      m_notices(std::move(notices)),
      m_outgoing(request.bodyLength.value_or(0)),
      m_easy(std::make_unique<EasyHandle>(m_connection->Common(), request, share,
                                          !request.IsRepeatable() && m_connection->IdleTime() >= kSafeIdleTime)),
      m_isRepeatable(request.IsRepeatable()),
      m_hasReplyBody(request.verb != "HEAD")
{
    m_easy->Set(CURLOPT_PREREQFUNCTION, &Transfer::OnAboutToSend);
    m_easy->Set(CURLOPT_PREREQDATA, static_cast<void*>(this));
    m_connection->TlsMessagesSeen().Reset();
    m_outgoing.AttachTo(*m_easy);
    m_incoming.AttachTo(*m_easy);
    m_notices.AttachTo(*m_easy);
    if (curl_multi_add_handle(m_connection->Multi(), m_easy->Get()) != CURLM_OK)
        throw std::bad_alloc();
    m_interruption.SetMulti(m_connection->Multi());
}

Transfer::~Transfer()
{
    Finish(ERROR_WINHTTP_OPERATION_CANCELLED);
}

DWORD Transfer::Start(std::string_view body, int timeout)
{
    const DWORD error = Write(body, timeout);
    if (error == ERROR_SUCCESS)
        m_notices.RequestSent();
    return error;
}

DWORD Transfer::Write(std::string_view bytes, int timeout)
{
    const bool isOffered = m_outgoing.Add(bytes);
    if (isOffered && m_outgoing.Unpause())
        Resume();
    const DWORD error = RunUntil([this] { return (m_phase == Phase::Connected && m_outgoing.IsTaken()) || TakesNoMoreBody(); }, timeout);
    if (isOffered)
        m_outgoing.EndOffer();
    return error;
}

DWORD Transfer::AwaitHead(int timeout)
{
    m_notices.ReceivingResponse();
    m_outgoing.OfferCollected();
    if (m_outgoing.Unpause())
        Resume();
    const DWORD error = RunUntil([this] { return m_incoming.Head().has_value(); }, timeout);
    if (error == ERROR_SUCCESS)
        m_notices.ResponseReceived(m_incoming.Received());
    return error;
}

DWORD Transfer::AwaitBody(int timeout)
{
    if (Buffered() != 0)
        return ERROR_SUCCESS;
    if (m_incoming.Unpause())
        Resume();
    // For curl, an exchange ends only when the whole request is sent, but our caller may have stopped writing early.
    const auto isOver = [this] { return m_phase == Phase::Over || (RequestBodyLeft() != 0 && m_incoming.IsComplete()); };
    if (const DWORD error = RunUntil([&] { return Buffered() != 0 || isOver(); }, timeout); error != ERROR_SUCCESS)
        return error;
    if (Buffered() == 0)
        Finish(ERROR_SUCCESS);
    return Buffered() != 0 ? ERROR_SUCCESS : m_error;
}

// Drives the exchange until the condition holds, it ends, nothing has moved for the timeout, the request's handle is closed, or its event
// ends a wait.
template <typename Condition> DWORD Transfer::RunUntil(Condition condition, int timeout)
{
    auto lastMove = Clock::now();
    std::optional<std::uint64_t> acknowledged;
    while (true)
    {
        if (m_interruption.IsRaised())
        {
            Finish(ERROR_WINHTTP_OPERATION_CANCELLED);
            return ERROR_WINHTTP_OPERATION_CANCELLED;
        }
        if (condition())
            return ERROR_SUCCESS;
        if (m_phase == Phase::Over)
            return m_error != ERROR_SUCCESS ? m_error : ERROR_WINHTTP_CONNECTION_ERROR;
        const auto before = Progress();
        int running = 0;
        if (curl_multi_perform(m_connection->Multi(), &running) != CURLM_OK)
        {
            Finish(ERROR_WINHTTP_INTERNAL_ERROR);
            continue;
        }
        m_notices.Moved();
        CollectResult();
        if (m_phase == Phase::Over || condition())
            continue;
        const auto now = Clock::now();
        if (Progress() != before)
        {
            lastMove = now;
            continue;
        }
        // Until the connection is made, curl enforces the time limit.
        auto wait = m_interruption.HasEvent() ? kLongestPollWithEvent : kLongestPoll;
        if (m_phase == Phase::Connected && timeout > 0)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(lastMove - now).count() + timeout;
            // Bytes that the peer acknowledges count as progress, too: curl may have handed them to the system long ago.
            if (m_outgoing.Taken() != 0 && (left <= 0 || !acknowledged))
            {
                const auto last = std::exchange(acknowledged, m_connection->Acknowledged());
                if (last && last != acknowledged)
                {
                    lastMove = now;
                    continue;
                }
            }
            if (left <= 0)
            {
                Finish(ERROR_WINHTTP_TIMEOUT);
                continue;
            }
            wait = std::min<std::int64_t>(left, wait);
        }
        curl_multi_poll(m_connection->Multi(), nullptr, 0, static_cast<int>(wait), nullptr);
        if (m_interruption.IsEventSignalled())
            Finish(ERROR_CANCELLED);
    }
}

// Changes whenever something was sent or received.
std::uint64_t Transfer::Progress() const noexcept
{
    const auto sent = static_cast<std::uint64_t>(m_easy->Info<curl_off_t>(CURLINFO_SIZE_UPLOAD_T));
    return m_timesConnected + m_outgoing.Taken() + sent + m_incoming.Received();
}

void Transfer::CollectResult()
{
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(m_connection->Multi(), &left))
        if (message->msg == CURLMSG_DONE)
            return Finish(OutcomeOf(message->data.result));
}

DWORD Transfer::OutcomeOf(CURLcode result)
{
    if (m_incoming.Error() != ERROR_SUCCESS)
        return m_incoming.Error();
    // The end of the connection ends such a body. With TLS the server says that it is the end (RFC 9112, 9.8).
    if (result == CURLE_OK && m_hasReplyBody && m_incoming.EndsWithConnection() && m_connection->Origin().starts_with("https:") &&
        !m_connection->TlsMessagesSeen().IsEnded())
        return ERROR_WINHTTP_CONNECTION_ERROR;
    // A server that refuses may also close the connection while the body is being sent; its reply counts. Success without the whole body
    // does not.
    if ((m_incoming.IsComplete() && (IsRefused() || m_outgoing.IsWholeTaken())) || (m_phase == Phase::Connecting && TakeProxyRefusal()))
        return ERROR_SUCCESS;
    if (result == CURLE_SSL_CONNECT_ERROR && m_connection->TlsMessagesSeen().WantsCertificate())
        return ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED;
    const DWORD error = Win32ErrorOf(result, m_phase == Phase::Connected, m_easy->ErrorText());
    if (error == ERROR_WINHTTP_SECURE_FAILURE)
        m_notices.SecureFailure(result);
    return error;
}

// Takes the status of a proxy that refuses the tunnel as the reply's. curl keeps that status.
bool Transfer::TakeProxyRefusal()
{
    const auto status = m_easy->Info<long>(CURLINFO_HTTP_CONNECTCODE);
    if (status < kFirstRefusal)
        return false;
    m_incoming.Replace(status, "The proxy refused to connect to the server.");
    return true;
}

bool Transfer::IsRefused() const noexcept
{
    const auto& head = m_incoming.Head();
    return head && head->status >= kFirstRefusal;
}

// Whether the rest of the body need not be sent, because the reply is a refusal or the exchange is over. curl then stops sending it. An
// exchange that broke before curl had taken the whole body has failed.
bool Transfer::TakesNoMoreBody() const noexcept
{
    return IsRefused() || (m_incoming.Head() && m_phase == Phase::Over && (m_error == ERROR_SUCCESS || m_outgoing.IsWholeTaken()));
}

// Lets curl go on in the directions that are not paused. curl delivers bytes that it kept back during this call.
void Transfer::Resume()
{
    if (m_phase == Phase::Over)
        return;
    const CURLcode result =
        curl_easy_pause(m_easy->Get(), (m_outgoing.IsPaused() ? CURLPAUSE_SEND : 0) | (m_incoming.IsPaused() ? CURLPAUSE_RECV : 0));
    if (result == CURLE_OK)
        return;
    // curl 7.88 may crash when a handle is used again whose memory has run out here.
    m_connection->Discard();
    Finish(m_incoming.Error() != ERROR_SUCCESS ? m_incoming.Error() : ERROR_NOT_ENOUGH_MEMORY);
}

// Ends the exchange, once, and returns the connection. curl closes one that is in the middle of a message.
void Transfer::Finish(DWORD error) noexcept
{
    if (m_phase == Phase::Over)
        return;
    m_phase = Phase::Over;
    m_error = error;
    m_interruption.SetMulti(nullptr);
    curl_multi_remove_handle(m_connection->Multi(), m_easy->Get());
    m_easy.reset();
    m_connection.reset();
}

int Transfer::OnAboutToSend(void* self, char*, char*, int, int) noexcept
{
    auto& transfer = *static_cast<Transfer*>(self);
    // curl calls this again when it repeats the request on a new connection. If it could not write anything to the first one, for example
    // after a reset that it had not noticed, the server has seen nothing of the request.
    const bool isRepeated = transfer.m_phase == Phase::Connected && transfer.m_easy->Info<long>(CURLINFO_REQUEST_SIZE) != 0;
    if (isRepeated && !transfer.m_isRepeatable)
        return CURL_PREREQFUNC_ABORT;
    transfer.m_phase = Phase::Connected;
    ++transfer.m_timesConnected;
    transfer.m_notices.SendingRequest();
    return CURL_PREREQFUNC_OK;
}

} // namespace Quendra::Platform
