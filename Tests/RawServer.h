#pragma once

/// @file
/// A loopback server that knows no HTTP beyond where a request ends: tests script what it does with each connection, down
/// to single bytes, and look at the bytes that it got. Built on Linux and on Windows.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Closed until somebody opens it; what tests wait with instead of sleeping.
class Gate
{
public:
    void Open();
    bool IsOpen() const;

    /// @return whether the gate was opened in time.
    bool Wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_open = false;
};

/// The client went away, or the server is being stopped: ends a connection's script.
struct ConnectionEnded
{
};

/// One accepted connection, used by its script alone. Every operation throws `ConnectionEnded` where it cannot go on.
class RawConnection
{
public:
    virtual ~RawConnection() = default;

    /// Place among the server's connections, from 0.
    virtual std::size_t Index() const = 0;

    /// Reads a request's lines up to the blank one, which is included.
    virtual std::string ReadHead() = 0;
    virtual std::string Read(std::uint64_t bytes) = 0;

    /// Reads a request with the body that its Content-Length announces, and records it.
    virtual std::string ReadRequest() = 0;

    /// Reads bytes and forgets them, after a look where one is wanted.
    virtual void Skip(std::uint64_t bytes, const std::function<void(std::string_view)>& look = {}) = 0;
    virtual void Send(std::string_view bytes) = 0;

    /// Keeps the connection open, without reading, until the server is stopped.
    virtual void Hold() = 0;

    /// Reads until the client closes the connection.
    virtual void AwaitEnd() = 0;

    /// Ends the connection with a reset.
    virtual void Reset() = 0;
};

class RawServer
{
public:
    /// Runs on a thread of its own for each connection, which is closed when the script returns.
    using Script = std::function<void(RawConnection&)>;

    /// @param address  "127.0.0.1" or "::1".
    explicit RawServer(Script script, const char* address = "127.0.0.1");

    /// Ends all connections and waits for their scripts.
    ~RawServer();

    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    std::uint16_t Port() const;

    /// Connections accepted up to now.
    std::size_t ConnectionCount() const;

    /// What `ReadRequest` has read, in order.
    std::vector<std::string> Requests() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

/// A whole reply with its Content-Length; further header lines end with CR LF each.
std::string HttpReply(int status, std::string_view body, std::string_view headerLines = {});

/// Answers every request of a connection, for as long as the client keeps it open.
RawServer::Script AnswerEach(std::function<std::string(const std::string& request)> answer);

/// The header's value in a recorded request; empty where there is none.
std::string HeaderValue(const std::string& request, std::string_view name);

/// The header lines of a recorded request, in order.
std::vector<std::string> HeaderLines(const std::string& request);

/// Bytes in which every place can be told from its neighbours.
std::string Pattern(std::size_t size);
