// The life of a request:
//
//     opened ---Send--> sent --Receive--> replied --Send--> sent ...
//       ^                |
//       +- Send failed --+
//
// A failure after Send is final: the request stays in "sent" and returns the same error again.

#include "Request.h"

#include <algorithm>
#include <utility>

namespace Quendra::Platform
{

namespace
{

constexpr INTERNET_PORT kHttpPort = 80;
constexpr INTERNET_PORT kHttpsPort = 443;

// Verbs that define a body: the length is sent even if the body is empty.
bool ExpectsBody(const std::string& verb)
{
    return verb == "POST" || verb == "PUT";
}

// curl accepts a head of less than 1 MiB, and reports a longer one as out of memory.
DWORD ErrorOfSize(const TransferRequest& request)
{
    constexpr std::size_t kMaxUrlBytes = 512 * 1024;
    constexpr std::size_t kMaxHeaderBytes = 256 * 1024;
    std::size_t headerBytes = request.cookies.size();
    for (const auto& line : request.headerLines)
        headerBytes += line.size();
    return request.url.size() > kMaxUrlBytes ? ERROR_WINHTTP_INVALID_URL
           : headerBytes > kMaxHeaderBytes   ? ERROR_WINHTTP_INVALID_HEADER
                                             : ERROR_SUCCESS;
}

// The time limit for connecting: curl has one limit for resolving the name and all that follows.
int ConnectTimeout(const Timeouts& timeouts)
{
    constexpr int kLongest = 0x3FFFFFFF;
    if (timeouts.connect <= 0)
        return 0;
    return std::min(timeouts.connect, kLongest) + std::min(std::max(timeouts.resolve, 0), kLongest);
}

} // namespace

Request::Request(std::shared_ptr<Connection> connection, std::string verb, std::string_view path, bool secure)
    : TimedObject(connection.get(), connection->GetSession().timeouts.Get()), m_connection(std::move(connection)), m_verb(std::move(verb))
{
    const auto host = HostForUrl(m_connection->Server());
    const auto port = m_connection->Port();
    m_knowsHost = host.has_value();
    m_address = {secure, host.value_or(std::string()), port != 0 ? port : secure ? kHttpsPort : kHttpPort, TargetForPath(path)};
}

DWORD Request::AddHeaders(std::string_view lines, DWORD modifiers)
{
    return m_state == State::Sent ? ERROR_WINHTTP_INCORRECT_HANDLE_STATE : m_headers.AddLines(lines, modifiers);
}

DWORD Request::Send(std::string_view headerLines, std::string_view body, std::uint64_t totalLength)
{
    if (m_state == State::Sent)
        return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
    m_transfer.reset();
    m_state = State::Opened;
    constexpr DWORD kReplaceOrAdd = WINHTTP_ADDREQ_FLAG_REPLACE | WINHTTP_ADDREQ_FLAG_ADD;
    if (const DWORD error = m_headers.AddLines(headerLines, kReplaceOrAdd); error != ERROR_SUCCESS)
        return error;
    if (const DWORD error = AnnounceBody(body, totalLength); error != ERROR_SUCCESS)
        return error;
    if (!m_knowsHost)
        return ERROR_WINHTTP_NAME_NOT_RESOLVED;
    const DWORD error = StartTransfer(body);
    m_state = error == ERROR_SUCCESS ? State::Sent : State::Opened;
    return error;
}

// Determines the body's length: from a header, else from the call, else from the verb.
DWORD Request::AnnounceBody(std::string_view body, std::uint64_t totalLength)
{
    m_bodyLength.reset();
    if (const auto* const stated = m_headers.Find(kContentLength))
    {
        m_bodyLength = ParseContentLength(*stated);
        if (!m_bodyLength)
            return ERROR_INVALID_PARAMETER;
    }
    else if (totalLength != 0 || !body.empty() || ExpectsBody(m_verb))
    {
        m_bodyLength = totalLength;
    }
    return body.size() > m_bodyLength.value_or(0) ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

DWORD Request::StartTransfer(std::string_view body)
{
    auto& session = m_connection->GetSession();
    const auto limits = timeouts.Get();
    auto headerLines = m_headers.LinesForCurl();
    if (!session.UserAgent().empty() && m_headers.Find("User-Agent") == nullptr)
        headerLines.emplace_back("User-Agent: ").append(session.UserAgent());
    const TransferRequest request{m_address.Url(),     m_verb,       std::move(headerLines),
                                  m_headers.Cookies(), m_bodyLength, ConnectTimeout(limits)};
    if (const DWORD error = ErrorOfSize(request); error != ERROR_SUCCESS)
        return error;
    m_transfer.reset(); // destroyed first, so that its connection can be borrowed again
    m_transfer = std::make_unique<Transfer>(session.Pool().Borrow(m_address.Origin(), session.Certificates()), session.Pool().Share(),
                                            request, m_interruption, StatusNotices(*this, m_connection->Server()));
    return m_transfer->Start(body, limits.send);
}

DWORD Request::Write(std::string_view bytes)
{
    if (m_state != State::Sent || bytes.size() > m_transfer->RequestBodyLeft())
        return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
    return m_transfer->Write(bytes, timeouts.Get().send);
}

DWORD Request::Receive()
{
    if (m_state != State::Sent)
        return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
    const DWORD error = m_transfer->AwaitHead(timeouts.Get().receive);
    if (error == ERROR_SUCCESS)
        m_state = State::Replied;
    return error;
}

const ReplyHead* Request::Reply() const noexcept
{
    return m_state == State::Replied ? &m_transfer->Head() : nullptr;
}

DWORD Request::DataAvailable(std::size_t& bytes)
{
    bytes = 0;
    if (m_state != State::Replied)
        return ERROR_WINHTTP_INCORRECT_HANDLE_STATE;
    const DWORD error = m_transfer->AwaitBody(timeouts.Get().receive);
    bytes = error == ERROR_SUCCESS ? m_transfer->Buffered() : 0;
    return error;
}

DWORD Request::Read(char* target, std::size_t capacity, std::size_t& count)
{
    count = 0;
    std::size_t available = 0;
    if (const DWORD error = DataAvailable(available); error != ERROR_SUCCESS)
        return error;
    count = m_transfer->Take(target, capacity);
    return ERROR_SUCCESS;
}

} // namespace Quendra::Platform
