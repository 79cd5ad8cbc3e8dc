#pragma once

/// @file
/// One accepted connection, in the form in which the HTTP library reads and writes it.

#include "Channel.h"
#include "HeaderMender.h"

#include <httplib.h>

#include <atomic>
#include <memory>
#include <string>

namespace ApplianceParts
{

class Connection final : public httplib::Stream
{
public:
    /// @param number  tells this connection from every other; the HTTP library hands it on as the peer's port.
    Connection(std::unique_ptr<IChannel> channel, System::Socket socket, int number);

    /// Waits for the next request's first byte.
    [[nodiscard]] bool WaitForRequest(std::chrono::milliseconds timeout);

    /// Whether the peer neither hung up nor sent anything on: it waits for the reply to what it asked.
    [[nodiscard]] bool IsPeerWaiting() const;

    /// No further request is taken after the current one: what follows on the wire cannot be told from its body.
    void EndAfterReply() { m_isBroken = true; }

    /// Ends the connection: its thread comes back from whatever it waits for. Callable from any thread.
    void Abort();

    bool is_readable() const override { return true; }
    bool is_writable() const override { return !m_isBroken; }
    ssize_t read(char* buffer, size_t size) override;
    ssize_t write(const char* data, size_t size) override;
    using httplib::Stream::write;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return static_cast<socket_t>(m_socket); }

private:
    [[nodiscard]] bool WaitForData(std::chrono::milliseconds timeout) const;
    [[nodiscard]] ssize_t Receive(char* buffer, std::size_t size);
    [[nodiscard]] bool Fill();
    [[nodiscard]] std::size_t TakeHead(char* buffer, std::size_t size);

    std::unique_ptr<IChannel> m_channel;
    System::Socket m_socket;
    int m_number;
    bool m_isBroken = false;
    std::atomic<bool> m_isAborted = false;
    std::string m_received; ///< read from the channel, not yet handed on; from `m_position` on.
    std::size_t m_position = 0;
    std::string m_head; ///< mended; not yet handed on from `m_headPosition` on.
    std::size_t m_headPosition = 0;
    HeaderMender m_mender;
};

} // namespace ApplianceParts
