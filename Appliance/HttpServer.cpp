#include "HttpServer.h"

#include "HttpConnection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <atomic>
#include <condition_variable>
#include <list>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace ApplianceParts
{

namespace
{

namespace asio = boost::asio;

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using ErrorCode = boost::system::error_code;

// The interval at which a wait checks for the end: closing a socket does not wake its waiting thread on every system.
constexpr std::chrono::milliseconds kLookUp{100};
constexpr std::chrono::milliseconds kShortestWait{200};
constexpr std::chrono::seconds kHandshakeTimeout{30};

template <typename Socket> bool WaitFor(Socket& socket, System::Wait wait, std::chrono::milliseconds time)
{
    return System::WaitFor(static_cast<System::Socket>(socket.native_handle()), wait, time);
}

// Waits before each blocking call, because that call has no deadline and cannot be ended by another thread.
class Socket final : public ISocket
{
public:
    explicit Socket(tcp::socket socket) : m_socket(std::move(socket))
    {
        ErrorCode ignored;
        m_socket.non_blocking(true, ignored);
        m_socket.set_option(tcp::no_delay(true), ignored);
    }

    std::ptrdiff_t Read(char* buffer, std::size_t size) override
    {
        return Move(System::Wait::Readable, [&](ErrorCode& error) { return m_socket.read_some(asio::buffer(buffer, size), error); });
    }

    std::ptrdiff_t Write(const char* data, std::size_t size) override
    {
        return Move(System::Wait::Writable, [&](ErrorCode& error) { return m_socket.write_some(asio::buffer(data, size), error); });
    }

    void FinishWriting() override
    {
        ErrorCode ignored;
        m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    }

    void BeginStep(Clock::duration time) override
    {
        m_stepBegan = Clock::now();
        m_deadline = m_stepBegan + time;
    }

    bool IsClientWaiting() const override { return !WaitFor(m_socket, System::Wait::Readable, std::chrono::milliseconds(0)); }

    /// Ends the connection: its thread returns from any wait. Callable from any thread, like `WaitingSince`.
    void Abort()
    {
        m_isAborted = true;
        ErrorCode ignored;
        m_socket.shutdown(tcp::socket::shutdown_both, ignored);
    }

    void Close()
    {
        ErrorCode ignored;
        m_socket.close(ignored);
    }

    /// The start of the step in which this waits for the client; the latest possible time if it does not wait.
    Clock::time_point WaitingSince() const { return m_waitingSince; }

private:
    template <typename Operation> std::ptrdiff_t Move(System::Wait wait, Operation operation)
    {
        ErrorCode error = asio::error::would_block;
        std::size_t count = 0;
        m_waitingSince = m_stepBegan;
        while (error == asio::error::would_block && !m_isAborted && Clock::now() < m_deadline)
            if (WaitFor(m_socket, wait, kLookUp))
                count = operation(error);
        m_waitingSince = Clock::time_point::max();
        return !error ? static_cast<std::ptrdiff_t>(count) : error == asio::error::eof ? 0 : -1;
    }

    mutable tcp::socket m_socket;
    Clock::time_point m_stepBegan;
    Clock::time_point m_deadline;
    std::atomic<Clock::time_point> m_waitingSince = Clock::time_point::max();
    std::atomic<bool> m_isAborted = false;
};

class HttpServer final : public IHttpServer
{
public:
    HttpServer(TlsAcceptor tls, std::size_t mostConnections, RequestHandler handler)
        : m_tls(std::move(tls)), m_mostConnections(mostConnections), m_handler(std::move(handler))
    {
    }

    ~HttpServer() override { HttpServer::Stop(); }

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    int Start(int port) override
    {
        try
        {
            m_acceptor.open(tcp::v4());
            System::PrepareListener(static_cast<System::Socket>(m_acceptor.native_handle()));
            m_acceptor.bind({asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)});
            m_acceptor.listen();
            m_acceptor.non_blocking(true);
        }
        catch (const boost::system::system_error& error)
        {
            throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of 127.0.0.1: " + error.code().message());
        }
        m_listener = std::thread([this] { Listen(); });
        return m_acceptor.local_endpoint().port();
    }

    void Stop() override
    {
        {
            const std::lock_guard guard(m_mutex);
            m_isStopping = true;
            for (auto& connection : m_connections)
                connection.socket.Abort();
        }
        if (m_listener.joinable())
            m_listener.join();
        for (auto& connection : m_connections)
            connection.thread.join();
        m_connections.clear();
        m_acceptor.close();
    }

private:
    struct Connection
    {
        explicit Connection(tcp::socket accepted) : socket(std::move(accepted)) {}

        Socket socket;
        std::thread thread;
        bool hasEnded = false;
    };

    void Listen()
    {
        while (!m_isStopping)
        {
            if (!WaitFor(m_acceptor, System::Wait::Readable, kLookUp))
                continue;
            std::unique_lock lock(m_mutex);
            MakeRoom(lock);
            ErrorCode error;
            tcp::socket accepted(m_context);
            m_acceptor.accept(accepted, error);
            if (!error && !m_isStopping)
                Add(std::move(accepted));
            else if (error != asio::error::would_block)
                m_oneEnded.wait_for(lock, kLookUp); // accept may have failed for lack of descriptors
        }
    }

    // Joins the threads that have ended. While there are too many connections, ends the one that has waited longest for its client, and
    // waits.
    void MakeRoom(std::unique_lock<std::mutex>& lock)
    {
        while (!m_isStopping)
        {
            m_connections.remove_if([](Connection& connection) {
                if (connection.hasEnded)
                    connection.thread.join();
                return connection.hasEnded;
            });
            if (m_connections.size() < m_mostConnections)
                return;
            const auto slowest =
                std::min_element(m_connections.begin(), m_connections.end(), [](const Connection& left, const Connection& right) {
                    return left.socket.WaitingSince() < right.socket.WaitingSince();
                });
            if (slowest->socket.WaitingSince() < Clock::now() - kShortestWait)
                slowest->socket.Abort();
            m_oneEnded.wait_for(lock, kLookUp);
        }
    }

    void Add(tcp::socket accepted)
    {
        auto& connection = m_connections.emplace_back(std::move(accepted));
        try
        {
            connection.thread = std::thread([this, &connection] { Run(connection); });
        }
        catch (const std::system_error&)
        {
            m_connections.pop_back(); // no thread could be created: the connection is closed
        }
    }

    void Run(Connection& connection)
    {
        try
        {
            connection.socket.BeginStep(kHandshakeTimeout);
            const auto tls = m_tls ? m_tls(connection.socket) : nullptr;
            if (tls || !m_tls)
                ServeConnection(connection.socket, tls ? *tls : connection.socket, m_handler);
        }
        catch (const std::exception&)
        {
            // Out of memory: this connection ends, the others continue.
        }
        const std::lock_guard guard(m_mutex);
        connection.socket.Close();
        connection.hasEnded = true;
        m_oneEnded.notify_all();
    }

    const TlsAcceptor m_tls;
    const std::size_t m_mostConnections;
    const RequestHandler m_handler;
    asio::io_context m_context;
    tcp::acceptor m_acceptor{m_context};
    std::thread m_listener;
    std::mutex m_mutex;
    std::condition_variable m_oneEnded;
    std::list<Connection> m_connections;
    std::atomic<bool> m_isStopping = false;
};

} // namespace

std::unique_ptr<IHttpServer> MakeHttpServer(TlsAcceptor tls, std::size_t mostConnections, RequestHandler handler)
{
    return std::make_unique<HttpServer>(std::move(tls), mostConnections, std::move(handler));
}

} // namespace ApplianceParts
