#include "HttpServer.h"

#include "HttpConnection.h"

#include <boost/asio/io_context.hpp>

#include <algorithm>
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

constexpr std::size_t kMostConnections = 500; // each takes a thread, a socket and perhaps a file
constexpr std::chrono::milliseconds kShortestWait{200};

class HttpServer
{
public:
    HttpServer(int port, ConnectionServer serve) : m_serve(std::move(serve))
    {
        try
        {
            m_acceptor.open(tcp::v4());
            System::PrepareListener(static_cast<System::NativeSocket>(m_acceptor.native_handle()));
            m_acceptor.bind({asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)});
            m_acceptor.listen();
            m_acceptor.non_blocking(true);
        }
        catch (const boost::system::system_error& error)
        {
            throw std::runtime_error("cannot listen on port " + std::to_string(port) + " of 127.0.0.1: " + error.code().message());
        }
        m_listener = std::jthread([this] { Listen(); });
    }

    ~HttpServer()
    {
        const std::lock_guard guard(m_mutex);
        m_isStopping = true;
        for (auto& connection : m_connections)
            connection.socket.Abort();
    }

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    [[nodiscard]] int Port() const { return m_acceptor.local_endpoint().port(); }

private:
    struct Connection
    {
        explicit Connection(tcp::socket accepted) : socket(std::move(accepted)) {}

        Socket socket;
        bool hasEnded = false;
        std::jthread thread; // joined first.
    };

    void Listen()
    {
        while (!m_isStopping)
        {
            if (!Socket::WaitFor(m_acceptor, System::Wait::Readable, Socket::kLookUp))
                continue;
            std::unique_lock lock(m_mutex);
            MakeRoom(lock);
            ErrorCode error;
            tcp::socket accepted(m_context);
            m_acceptor.accept(accepted, error);
            if (!error && !m_isStopping)
                Add(std::move(accepted));
            else if (error != asio::error::would_block)
                m_oneEnded.wait_for(lock, Socket::kLookUp); // accept may have failed for lack of descriptors
        }
    }

    // Joins the threads that have ended. While there are too many connections, ends the one that has waited longest for its client, and
    // waits.
    void MakeRoom(std::unique_lock<std::mutex>& lock)
    {
        while (!m_isStopping)
        {
            m_connections.remove_if([](const Connection& connection) { return connection.hasEnded; });
            if (m_connections.size() < kMostConnections)
                return;
            const auto slowest = std::ranges::min_element(m_connections, {}, [](const auto& each) { return each.socket.WaitingSince(); });
            if (slowest->socket.WaitingSince() < Clock::now() - kShortestWait)
                slowest->socket.Abort();
            m_oneEnded.wait_for(lock, Socket::kLookUp);
        }
    }

    void Add(tcp::socket accepted)
    {
        auto& connection = m_connections.emplace_back(std::move(accepted));
        try
        {
            connection.thread = std::jthread([this, &connection] { Run(connection); });
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
            m_serve(connection.socket);
            connection.socket.Finish();
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

    const ConnectionServer m_serve;
    asio::io_context m_context;
    tcp::acceptor m_acceptor{m_context};
    std::mutex m_mutex;
    std::condition_variable m_oneEnded;
    std::atomic<bool> m_isStopping = false;
    std::list<Connection> m_connections;
    std::jthread m_listener; // joined first, then the threads of the connections.
};

} // namespace

std::shared_ptr<void> StartHttpServer(const Options& options, int& port, const RequestHandler& handler, const FaultChooser& chooseFault)
{
    ConnectionServer serve = [=](Socket& socket) { HttpConnection(socket, socket, handler, chooseFault).Serve(); };
    if (!options.certificate.empty())
        serve = ServeTls(options, handler, chooseFault);
    if (chooseFault)
        serve = PlayAtConnections(chooseFault, std::move(serve));
    const auto server = std::make_shared<HttpServer>(port, std::move(serve));
    port = server->Port();
    return server;
}

} // namespace ApplianceParts
