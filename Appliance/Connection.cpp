#include "Connection.h"

#include <algorithm>
#include <cstring>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kReceiveSize = 64 * 1024;
constexpr std::size_t kLargestHead = 64 * 1024;
constexpr std::chrono::minutes kReceiveTimeout{5};
// Not on every system does a socket's end wake who waits for it.
constexpr std::chrono::milliseconds kAbortLatency{100};

} // namespace

Connection::Connection(std::unique_ptr<IChannel> channel, System::Socket socket, int number)
    : m_channel(std::move(channel)), m_socket(socket), m_number(number)
{
}

bool Connection::WaitForRequest(std::chrono::milliseconds timeout)
{
    m_mender.Reset();
    m_head.clear();
    m_headPosition = 0;
    if (m_isBroken)
        return false;
    return m_position < m_received.size() || WaitForData(timeout);
}

void Connection::Abort()
{
    m_isAborted = true;
    System::ShutDown(m_socket);
}

bool Connection::IsPeerWaiting() const
{
    return !m_isBroken && !System::WaitReadable(m_socket, std::chrono::milliseconds(0));
}

ssize_t Connection::read(char* buffer, size_t size)
{
    if (size == 0)
        return 0;
    if (m_headPosition < m_head.size() || !m_mender.IsComplete())
        return static_cast<ssize_t>(TakeHead(buffer, size));
    // Large reads need no detour through the buffer.
    if (m_position == m_received.size() && size >= kReceiveSize)
    {
        return Receive(buffer, size);
    }
    if (m_position == m_received.size() && !Fill())
        return -1;
    const auto count = std::min(size, m_received.size() - m_position);
    std::memcpy(buffer, m_received.data() + m_position, count);
    m_position += count;
    return static_cast<ssize_t>(count);
}

std::size_t Connection::TakeHead(char* buffer, std::size_t size)
{
    while (m_headPosition == m_head.size())
    {
        if (m_mender.Size() > kLargestHead || (m_position == m_received.size() && !Fill()))
        {
            m_isBroken = true;
            return 0;
        }
        m_head.clear();
        m_headPosition = 0;
        while (m_position < m_received.size() && !m_mender.IsComplete())
            m_mender.Take(m_received[m_position++], m_head);
    }
    const auto count = std::min(size, m_head.size() - m_headPosition);
    std::memcpy(buffer, m_head.data() + m_headPosition, count);
    m_headPosition += count;
    return count;
}

bool Connection::Fill()
{
    m_received.resize(kReceiveSize);
    m_position = 0;
    const auto count = Receive(m_received.data(), m_received.size());
    m_received.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count > 0;
}

bool Connection::WaitForData(std::chrono::milliseconds timeout) const
{
    if (m_channel->HasPending())
        return true;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!m_isAborted && std::chrono::steady_clock::now() < deadline)
    {
        if (System::WaitReadable(m_socket, kAbortLatency))
            return true;
    }
    return false;
}

ssize_t Connection::Receive(char* buffer, std::size_t size)
{
    const auto count = WaitForData(kReceiveTimeout) ? m_channel->Read(buffer, size) : -1;
    m_isBroken = m_isBroken || count <= 0;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, size_t size)
{
    const auto count = m_channel->Write(data, size);
    m_isBroken = m_isBroken || count < 0;
    return static_cast<ssize_t>(count);
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip = "127.0.0.1";
    port = m_number;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const
{
    ip = "127.0.0.1";
    port = 0;
}

} // namespace ApplianceParts
