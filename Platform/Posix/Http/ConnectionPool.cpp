#include "ConnectionPool.h"

#include "../CallGuard.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Quendra::Platform
{

namespace
{

// Idle connections are closed after this time: many servers and proxies close theirs after a minute.
constexpr std::chrono::seconds kLongestIdle(50);

} // namespace

PooledConnection::PooledConnection(std::string origin, CertificateStore& trusted)
    : m_origin(std::move(origin)), m_tlsMessages(trusted), m_multi(curl_multi_init())
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg)
    if (!m_multi || curl_multi_setopt(m_multi.get(), CURLMOPT_MAXCONNECTS, 1L) != CURLM_OK)
        throw std::bad_alloc();
    // Without descriptors curl makes a handle whose waits nothing ends.
    if (curl_multi_wakeup(m_multi.get()) != CURLM_OK)
        throw std::bad_alloc();
    m_tlsMessages.AttachTo(m_common);
    m_common.Set(CURLOPT_SOCKOPTFUNCTION, &PooledConnection::OnOpened);
    m_common.Set(CURLOPT_SOCKOPTDATA, static_cast<void*>(this));
    m_common.Set(CURLOPT_CLOSESOCKETFUNCTION, &PooledConnection::OnClosing);
    m_common.Set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(this));
}

PooledConnection::Clock::time_point PooledConnection::Clock::now() noexcept
{
    timespec time = {};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

bool PooledConnection::HasInput() const noexcept
{
    return std::any_of(m_sockets.begin(), m_sockets.end(), [](curl_socket_t socket) {
        pollfd entry{socket, POLLIN, 0};
        return ::poll(&entry, 1, 0) != 0;
    });
}

std::uint64_t PooledConnection::Acknowledged() const noexcept
{
    std::uint64_t sum = 0;
    for (const auto socket : m_sockets)
    {
        tcp_info info = {};
        socklen_t size = sizeof info;
        sum += ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 ? info.tcpi_bytes_acked : 0;
    }
    return sum;
}

int PooledConnection::OnOpened(void* self, curl_socket_t socket, curlsocktype) noexcept
{
    ::fcntl(socket, F_SETFD, FD_CLOEXEC); // NOLINT(cppcoreguidelines-pro-type-vararg): a program that the host starts does not get it
    const DWORD error = ErrorOf([&]() -> DWORD {
        static_cast<PooledConnection*>(self)->m_sockets.push_back(socket);
        return ERROR_SUCCESS;
    });
    return error == ERROR_SUCCESS ? CURL_SOCKOPT_OK : CURL_SOCKOPT_ERROR;
}

int PooledConnection::OnClosing(void* self, curl_socket_t socket) noexcept
{
    std::erase(static_cast<PooledConnection*>(self)->m_sockets, socket);
    return ::close(socket);
}

ConnectionPool::Borrowed ConnectionPool::Borrow(const std::string& origin, CertificateStore& trusted)
{
    std::unique_ptr<PooledConnection> connection;
    Connections unusable; // closed outside the lock
    {
        const std::lock_guard lock(m_mutex);
        unusable = TakeExpired();
        while (!connection)
        {
            const auto isForOrigin = [&](const auto& idle) { return idle->Origin() == origin; };
            const auto mostRecent = std::find_if(m_idle.rbegin(), m_idle.rend(), isForOrigin);
            if (mostRecent == m_idle.rend())
                break;
            if ((*mostRecent)->HasInput())
                unusable.push_back(std::move(*mostRecent));
            else
                connection = std::move(*mostRecent);
            m_idle.erase(std::next(mostRecent).base());
        }
    }
    if (!connection)
        connection = std::make_unique<PooledConnection>(origin, trusted);
    return {connection.release(), Return(shared_from_this())};
}

// Removes and returns the connections that have been idle for too long.
ConnectionPool::Connections ConnectionPool::TakeExpired()
{
    const auto firstKept = std::find_if(m_idle.begin(), m_idle.end(), [](const auto& idle) { return idle->IdleTime() <= kLongestIdle; });
    Connections expired(std::make_move_iterator(m_idle.begin()), std::make_move_iterator(firstKept));
    m_idle.erase(m_idle.begin(), firstKept);
    return expired;
}

void ConnectionPool::Return::operator()(PooledConnection* connection) const noexcept
{
    std::unique_ptr<PooledConnection> owned(connection);
    if (owned->IsDiscarded())
        return;
    try
    {
        Connections expired; // closed outside the lock
        const std::lock_guard lock(m_pool->m_mutex);
        expired = m_pool->TakeExpired();
        owned->SetUsed();
        m_pool->m_idle.push_back(std::move(owned));
    }
    catch (const std::bad_alloc&)
    {
        // A connection that cannot be kept is closed.
        return;
    }
}

} // namespace Quendra::Platform
