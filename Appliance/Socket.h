#pragma once

/// @file
/// An accepted socket as a synchronous stream for Boost.Asio and Boost.Beast, with deadlines and an end from outside.

#include "System.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <algorithm>
#include <array>
#include <atomic>

namespace ApplianceParts
{

using ErrorCode = boost::system::error_code;
using Clock = std::chrono::steady_clock;

/// Waits before each blocking call, because that call has no deadline and cannot be ended by another thread.
class Socket
{
public:
    using Tcp = boost::asio::ip::tcp;
    // Required by Asio's TLS stream.
    using lowest_layer_type = Socket;
    using executor_type = Tcp::socket::executor_type;

    /// The interval at which a wait checks for the end: closing a socket does not wake its waiting thread on every system.
    static constexpr std::chrono::milliseconds kLookUp{100};

    explicit Socket(Tcp::socket socket) : m_socket(std::move(socket))
    {
        ErrorCode ignored;
        m_socket.non_blocking(true, ignored);
        m_socket.set_option(Tcp::no_delay(true), ignored);
    }

    lowest_layer_type& lowest_layer() { return *this; }
    executor_type get_executor() { return m_socket.get_executor(); }

    template <typename Buffers> std::size_t read_some(const Buffers& buffers, ErrorCode& error)
    {
        return Move(System::Wait::Readable, error, [&] { return m_socket.read_some(buffers, error); });
    }
    template <typename Buffers> std::size_t write_some(const Buffers& buffers, ErrorCode& error)
    {
        return Move(System::Wait::Writable, error, [&] { return m_socket.write_some(buffers, error); });
    }

    // Required by Beast's stream concepts, never called.
    template <typename Buffers> std::size_t read_some(const Buffers& buffers);
    template <typename Buffers> std::size_t write_some(const Buffers& buffers);

    /// Begins a step, such as a request's head or a block of a body. After its time, reading and writing fail. When all places are taken,
    /// the server ends the connection whose client has kept it waiting longest in one step.
    void BeginStep(Clock::duration time)
    {
        m_stepBegan = Clock::now();
        m_deadline = m_stepBegan + time;
    }

    /// Whether the client is still connected and has sent nothing more: it waits for the reply. From here on this counts as waiting for
    /// the client, too.
    [[nodiscard]] bool IsClientWaiting()
    {
        m_waitingSince = m_stepBegan;
        return !m_isAborted && !WaitFor(m_socket, System::Wait::Readable, std::chrono::milliseconds(0));
    }

    /// Waits, without reading, until the client ends the connection, the server ends it, or the time is over.
    void WaitForEnd(Clock::duration time)
    {
        BeginStep(time);
        m_waitingSince = m_stepBegan;
        while (!m_isAborted && Clock::now() < m_deadline &&
               !WaitFor(m_socket, System::Wait::Ended,
                        std::min(kLookUp, std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now()))))
            ;
        m_waitingSince = Clock::time_point::max();
    }

    /// Makes the connection end with a reset.
    void Reset()
    {
        ErrorCode ignored;
        m_socket.set_option(boost::asio::socket_base::linger(true, 0), ignored);
        m_isReset = true;
    }

    /// Waits until the client has read the last reply: closing a socket with unread bytes resets the connection, and the client may lose
    /// that reply.
    void Finish()
    {
        if (m_isReset)
            return;
        BeginStep(std::chrono::seconds(1));
        ErrorCode error;
        m_socket.shutdown(Tcp::socket::shutdown_send, error);
        for (std::array<char, 4096> rest{}; !error;)
            (void)read_some(boost::asio::buffer(rest), error);
    }

    void Close()
    {
        ErrorCode ignored;
        m_socket.close(ignored);
    }

    /// Ends the connection at once: its thread returns from any wait. Callable from any thread, like `WaitingSince`.
    void Abort()
    {
        m_isAborted = true;
        ErrorCode ignored;
        m_socket.shutdown(Tcp::socket::shutdown_both, ignored);
    }

    /// The start of the step in which this waits for the client; the latest possible time if it does not wait.
    [[nodiscard]] Clock::time_point WaitingSince() const { return m_waitingSince; }

    /// @param socket  an Asio socket or acceptor.
    template <typename Native> [[nodiscard]] static bool WaitFor(Native& socket, System::Wait wait, std::chrono::milliseconds time)
    {
        return System::WaitFor(static_cast<System::NativeSocket>(socket.native_handle()), wait, time);
    }

private:
    template <typename Operation> std::size_t Move(System::Wait wait, ErrorCode& error, Operation operation)
    {
        std::size_t count = 0;
        error = boost::asio::error::would_block;
        m_waitingSince = m_stepBegan;
        while (error == boost::asio::error::would_block && !m_isAborted && Clock::now() < m_deadline)
            if (WaitFor(m_socket, wait, kLookUp))
                count = operation();
        m_waitingSince = Clock::time_point::max();
        return count;
    }

    Tcp::socket m_socket;
    Clock::time_point m_stepBegan;
    Clock::time_point m_deadline;
    std::atomic<Clock::time_point> m_waitingSince = Clock::time_point::max();
    std::atomic<bool> m_isAborted = false;
    bool m_isReset = false;
};

} // namespace ApplianceParts
