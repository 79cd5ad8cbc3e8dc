#include "RawServer.h"

#include "Sockets.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace
{
/// How often a waiting connection looks whether the server is being stopped.
constexpr int kPollMilliseconds = 20;
} // namespace

class RawSocket
{
public:
    explicit RawSocket(Sockets::Handle socket) : handle(socket) { Sockets::MakeNonBlocking(handle); }
    ~RawSocket() { Sockets::Close(handle); }

    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    const Sockets::Handle handle;
};

std::string RawConnection::ReadHead()
{
    constexpr std::string_view kEnd = "\r\n\r\n";
    std::size_t end = 0;
    while ((end = m_received.find(kEnd)) == std::string::npos)
        Fill();
    return Read(end + kEnd.size());
}

std::string RawConnection::Read(std::uint64_t bytes)
{
    std::string taken;
    Skip(bytes, [&taken](std::string_view piece) { taken += piece; });
    return taken;
}

std::string RawConnection::ReadRequest()
{
    auto request = ReadHead();
    request += Read(std::strtoull(HeaderValue(request, "Content-Length").c_str(), nullptr, 10));
    const std::lock_guard lock(m_server.m_mutex);
    return m_server.m_requests.emplace_back(std::move(request));
}

void RawConnection::Skip(std::uint64_t bytes, const std::function<void(std::string_view)>& look)
{
    while (bytes > 0)
    {
        if (m_received.empty())
            Fill();
        const auto piece = std::string_view(m_received).substr(0, static_cast<std::size_t>(bytes));
        if (look)
            look(piece);
        bytes -= piece.size();
        m_received.erase(0, piece.size());
    }
}

void RawConnection::Send(std::string_view bytes)
{
    while (!bytes.empty())
    {
        AwaitReady(true);
        const auto count = Sockets::Send(m_socket->handle, bytes.data(), bytes.size());
        if (count < 0 && !Sockets::WouldBlock())
            throw ConnectionEnded();
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

void RawConnection::Hold()
{
    while (!m_server.m_isStopping)
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
}

void RawConnection::Reset()
{
    Sockets::ResetWhenClosed(m_socket->handle);
    throw ConnectionEnded();
}

void RawConnection::AwaitReady(bool forWriting)
{
    do
    {
        if (m_server.m_isStopping)
            throw ConnectionEnded();
    } while (!Sockets::IsReady(m_socket->handle, forWriting, kPollMilliseconds));
}

// May bring nothing.
void RawConnection::Fill()
{
    char block[64 * 1024];
    AwaitReady(false);
    const auto count = Sockets::Receive(m_socket->handle, block, sizeof block);
    if (count == 0 || (count < 0 && !Sockets::WouldBlock()))
        throw ConnectionEnded();
    m_received.append(block, count > 0 ? static_cast<std::size_t>(count) : 0);
}

RawServer::RawServer(Script script, std::string_view address) : m_script(std::move(script))
{
    Sockets::Initialise();
    // The port stands at the same place in both kinds of address.
    union
    {
        sockaddr any;
        sockaddr_in v4;
        sockaddr_in6 v6;
    } name = {};
    Sockets::Length size = sizeof name.v4;
    name.v4.sin_family = AF_INET;
    name.v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (address == "::1")
    {
        size = sizeof name.v6;
        name.v6.sin6_family = AF_INET6;
        name.v6.sin6_addr = in6addr_loopback;
    }
    auto listener = std::make_shared<RawSocket>(::socket(name.any.sa_family, SOCK_STREAM, 0));
    if (::bind(listener->handle, &name.any, size) != 0 || ::listen(listener->handle, SOMAXCONN) != 0 ||
        ::getsockname(listener->handle, &name.any, &size) != 0)
        throw std::runtime_error("the test server cannot listen");
    m_port = ntohs(name.v4.sin_port);
    m_acceptor = std::thread([this, listener] { Accept(*listener); });
}

RawServer::~RawServer()
{
    m_isStopping = true;
    m_acceptor.join();
    for (auto& script : m_scripts)
        script.join();
}

std::vector<std::string> RawServer::Requests() const
{
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

void RawServer::Accept(RawSocket& listener)
{
    while (!m_isStopping)
    {
        if (!Sockets::IsReady(listener.handle, false, kPollMilliseconds))
            continue;
        const auto accepted = ::accept(listener.handle, nullptr, nullptr);
        if (accepted == Sockets::kNone)
            continue;
        ++m_connections;
        m_scripts.emplace_back([this, socket = std::make_shared<RawSocket>(accepted)]() mutable {
            RawConnection connection(*this, std::move(socket));
            try
            {
                m_script(connection);
            }
            catch (const ConnectionEnded&)
            {
                return; // the usual end
            }
        });
    }
}

std::string HttpReply(int status, std::string_view body, std::string_view headerLines)
{
    return "HTTP/1.1 " + std::to_string(status) + " Reason\r\n" + std::string(headerLines) +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

RawServer::Script AnswerEach(std::function<std::string(const std::string& request)> answer)
{
    return [answer = std::move(answer)](RawConnection& connection) {
        while (true)
            connection.Send(answer(connection.ReadRequest()));
    };
}

std::string HeaderValue(const std::string& request, std::string_view name)
{
    const auto isSame = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    for (const std::string& line : HeaderLines(request))
    {
        const auto colon = std::min(line.find(':'), line.size());
        if (std::equal(name.begin(), name.end(), line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon), isSame))
            return line.substr(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
    }
    return {};
}

std::vector<std::string> HeaderLines(const std::string& request)
{
    std::vector<std::string> lines;
    std::size_t start = request.find("\r\n") + 2;
    for (std::size_t end = request.find("\r\n", start); end != start && end != std::string::npos; end = request.find("\r\n", start))
    {
        lines.push_back(request.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

std::string Pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        text[at] = static_cast<char>((at * 31 + at / 251) & 0xFF);
    return text;
}
