#include "RawServer.h"

#include "TextComparison.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include <array>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace asio = boost::asio;
using asio::ip::tcp;

// A connection. Its context runs one operation at a time, and is stopped with the server.
struct RawSocket
{
    asio::io_context context{1};
    tcp::socket socket{context};
    std::array<char, 64 * 1024> block = {};
};

struct RawServer::Network
{
    explicit Network(const std::string& address) : acceptor(context, {asio::ip::make_address(address), 0}, false) {}

    asio::io_context context{1};
    tcp::acceptor acceptor;
};

namespace
{
// Completes an operation that `start` starts with a handler. @return the bytes that were moved.
template <typename Start> std::size_t Complete(RawSocket& socket, const Gate& stopping, const Start& start)
{
    bool isOver = false;
    boost::system::error_code failure;
    std::size_t bytes = 0;
    start([&](const boost::system::error_code& error, std::size_t count) {
        isOver = true;
        failure = error;
        bytes = count;
    });
    socket.context.restart();
    if (!stopping.Wait(std::chrono::milliseconds(0)))
        socket.context.run();
    if (!isOver)
    {
        // The server is being stopped. The operation has to end before what it uses is gone.
        socket.socket.close(failure);
        socket.context.restart();
        socket.context.run();
        throw ConnectionEnded();
    }
    if (failure)
        throw ConnectionEnded();
    return bytes;
}
} // namespace

std::string RawConnection::ReadHead()
{
    constexpr std::string_view kEnd = "\r\n\r\n";
    std::size_t end = 0;
    while ((end = m_received.find(kEnd)) == std::string::npos)
        Fill();
    ++m_server.m_requestCount;
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
    std::string request = ReadHead();
    request += Read(BodyLength(request));
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
    Complete(m_socket, m_server.m_stopping, [&](auto handler) { asio::async_write(m_socket.socket, asio::buffer(bytes), handler); });
}

void RawConnection::Hold()
{
    while (!m_server.m_stopping.Wait())
        continue;
}

void RawConnection::LimitReceiveBuffer(int bytes)
{
    m_socket.socket.set_option(asio::socket_base::receive_buffer_size(bytes));
}

void RawConnection::Reset()
{
    m_socket.socket.set_option(asio::socket_base::linger(true, 0));
    m_socket.socket.close();
}

void RawConnection::Fill()
{
    m_received.append(m_socket.block.data(), Complete(m_socket, m_server.m_stopping, [this](auto handler) {
                          m_socket.socket.async_read_some(asio::buffer(m_socket.block), handler);
                      }));
}

RawServer::RawServer(Script script, const std::string& address)
    : m_script(std::move(script)), m_network(std::make_unique<Network>(address)), m_acceptor([this] {
          Accept();
          m_network->context.run();
      })
{
}

RawServer::~RawServer()
{
    m_stopping.Open();
    m_network->context.stop();
    m_acceptor.join();
    for (auto& [thread, socket] : m_connections)
    {
        socket->context.stop();
        thread.join();
    }
}

std::uint16_t RawServer::Port() const
{
    return m_network->acceptor.local_endpoint().port();
}

std::vector<std::string> RawServer::Requests() const
{
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

// Accepts connections for as long as the context runs.
void RawServer::Accept()
{
    const auto socket = std::make_shared<RawSocket>();
    m_network->acceptor.async_accept(socket->socket, [this, socket](const boost::system::error_code& error) {
        if (!error)
        {
            ++m_connectionCount;
            m_connections.emplace_back(std::thread([this, socket] { Serve(*socket); }), socket);
        }
        Accept();
    });
}

void RawServer::Serve(RawSocket& socket)
{
    RawConnection connection(*this, socket);
    try
    {
        m_script(connection);
    }
    catch (const ConnectionEnded&) // NOLINT(bugprone-empty-catch): the usual end
    {
    }
    boost::system::error_code ignored;
    socket.socket.close(ignored);
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
    for (const std::string& line : HeaderLines(request))
        if (const auto colon = std::min(line.find(':'), line.size()); EqualIgnoringAsciiCase(line.substr(0, colon), name))
            return line.substr(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
    return {};
}

std::vector<std::string> HeaderLines(const std::string& request)
{
    std::vector<std::string> lines;
    std::istringstream text(request);
    std::string line;
    for (std::getline(text, line); std::getline(text, line) && line != "\r";)
        lines.push_back(line.substr(0, line.size() - 1));
    return lines;
}

std::uint64_t BodyLength(const std::string& head)
{
    return std::strtoull(HeaderValue(head, "Content-Length").c_str(), nullptr, 10);
}

std::string Pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        text[at] = static_cast<char>((at * 31 + at / 251) & 0xFF);
    return text;
}
