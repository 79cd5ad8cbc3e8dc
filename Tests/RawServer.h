#pragma once

/// @file
/// A loopback server that knows only where an HTTP request ends. A test scripts each connection, down to single bytes, and sees the
/// bytes that came.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

/// Lets threads wait until another thread opens it.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }

    /// @return whether the gate was opened in time.
    bool Wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) const
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [this] { return m_isOpen; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_isOpen = false;
};

/// The client went away, or the server is being stopped: ends a connection's script.
struct ConnectionEnded
{
};

class RawServer;
struct RawSocket;

/// One accepted connection, used by its script alone. Every operation throws `ConnectionEnded` where it cannot go on.
class RawConnection
{
public:
    RawConnection(RawServer& server, RawSocket& socket) : m_server(server), m_socket(socket) {}

    /// Reads a request's lines up to the blank one, which is included.
    std::string ReadHead();
    std::string Read(std::uint64_t bytes);

    /// Reads a request with the body that its Content-Length announces, and records it.
    std::string ReadRequest();

    /// Reads bytes and forgets them, after a look where one is wanted.
    void Skip(std::uint64_t bytes, const std::function<void(std::string_view)>& look = {});
    void Send(std::string_view bytes);

    /// Keeps the connection open, without reading, until the server is stopped.
    void Hold();

    /// Reads until the client closes the connection.
    void AwaitEnd() { Skip(UINT64_MAX); }

    /// Lets the system keep about this many bytes for the script: the client's keeps the others.
    void LimitReceiveBuffer(int bytes);

    /// Ends the connection with a reset, at once.
    void Reset();

private:
    void Fill();

    RawServer& m_server;
    RawSocket& m_socket;
    std::string m_received;
};

class RawServer
{
public:
    /// Runs on a thread of its own for each connection, which is closed when the script returns.
    using Script = std::function<void(RawConnection&)>;

    /// @param address  "127.0.0.1" or "::1".
    explicit RawServer(Script script, const std::string& address = "127.0.0.1");

    /// Ends all connections and waits for their scripts.
    ~RawServer();

    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    std::uint16_t Port() const;

    /// Connections accepted, and requests whose head was read, up to now.
    std::size_t ConnectionCount() const { return m_connectionCount; }
    std::size_t RequestCount() const { return m_requestCount; }

    /// What `ReadRequest` has read, in order.
    std::vector<std::string> Requests() const;

private:
    friend RawConnection;
    struct Network;

    void Accept();
    void Serve(RawSocket& socket);

    const Script m_script;
    const std::unique_ptr<Network> m_network;
    Gate m_stopping;
    std::atomic<std::size_t> m_connectionCount = 0;
    std::atomic<std::size_t> m_requestCount = 0;
    mutable std::mutex m_mutex; // of the requests, and of the closing of sockets
    std::vector<std::string> m_requests;
    std::vector<std::pair<std::thread, std::shared_ptr<RawSocket>>> m_connections;
    std::thread m_acceptor; // last, since it uses the others
};

/// A whole reply with its Content-Length; further header lines end with CR LF each.
std::string HttpReply(int status, std::string_view body, std::string_view headerLines = {});

/// Answers every request of a connection, for as long as the client keeps it open.
RawServer::Script AnswerEach(std::function<std::string(const std::string& request)> answer);

/// The header's value in a recorded request; empty where there is none.
std::string HeaderValue(const std::string& request, std::string_view name);

/// The header lines of a recorded request, in order.
std::vector<std::string> HeaderLines(const std::string& request);

/// What the request's Content-Length announces.
std::uint64_t BodyLength(const std::string& head);

/// Bytes that show where a copy went wrong: neighbouring blocks differ.
std::string Pattern(std::size_t size);
