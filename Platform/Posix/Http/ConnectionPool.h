#pragma once

/// @file
/// The connections that a session keeps open for reuse.
///
/// A pooled connection is one curl multi handle that keeps one connection open. A request borrows it for one exchange, so only one thread
/// at a time uses it. The most recently used one is reused first: sequential requests share one TCP connection, concurrent requests use one
/// each.

#include "CurlShare.h"
#include "TlsMessages.h"

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Quendra::Platform
{

class PooledConnection
{
public:
    /// Time that passes while the machine is suspended, too: the server closes idle connections meanwhile.
    struct Clock
    {
        using duration = std::chrono::nanoseconds;
        using time_point = std::chrono::time_point<Clock, duration>;

        static time_point now() noexcept;
    };

    /// @throws what `EasyHandle::Set` throws
    PooledConnection(std::string origin, CertificateStore& trusted);

    CURLM* Multi() const noexcept { return m_multi.get(); }

    /// The easy handle that each request duplicates.
    const EasyHandle& Common() const noexcept { return m_common; }

    /// The server: scheme, name and port, as they stand in a URL.
    const std::string& Origin() const noexcept { return m_origin; }

    TlsMessages& TlsMessagesSeen() noexcept { return m_tlsMessages; }

    /// How many bytes the peer's TCP has acknowledged. Bytes that curl has written to the socket may wait there for minutes.
    std::uint64_t Acknowledged() const noexcept;

    /// Whether something has arrived while the connection was idle: its end, or bytes that the next request would take for its reply.
    bool HasInput() const noexcept;

    /// Has the connection closed when it is returned.
    void Discard() noexcept { m_isDiscarded = true; }
    bool IsDiscarded() const noexcept { return m_isDiscarded; }

    Clock::duration IdleTime() const noexcept { return Clock::now() - m_lastUsed; }
    void SetUsed() noexcept { m_lastUsed = Clock::now(); }

private:
    struct Cleanup
    {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };

    static int OnOpened(void* self, curl_socket_t socket, curlsocktype) noexcept;
    static int OnClosing(void* self, curl_socket_t socket) noexcept;

    const std::string m_origin;
    std::vector<curl_socket_t> m_sockets; // several while curl tries addresses side by side
    TlsMessages m_tlsMessages;
    EasyHandle m_common;
    std::unique_ptr<CURLM, Cleanup> m_multi;
    Clock::time_point m_lastUsed = Clock::now();
    bool m_isDiscarded = false;
};

/// Lends a session's connections and keeps the idle ones. Thread-safe.
class ConnectionPool : public std::enable_shared_from_this<ConnectionPool>
{
public:
    /// Puts a borrowed connection back into its pool.
    class Return
    {
    public:
        explicit Return(std::shared_ptr<ConnectionPool> pool = nullptr) noexcept : m_pool(std::move(pool)) {}
        void operator()(PooledConnection* connection) const noexcept;

    private:
        std::shared_ptr<ConnectionPool> m_pool;
    };
    using Borrowed = std::unique_ptr<PooledConnection, Return>;

    /// Lends a connection to a server: an idle one, or a new one that is not connected yet.
    /// @param trusted  the authorities that it trusts; must outlive the connection.
    /// @throws what `EasyHandle::Set` throws
    Borrowed Borrow(const std::string& origin, CertificateStore& trusted);

    CURLSH* Share() const noexcept { return m_share.Get(); }

private:
    using Connections = std::vector<std::unique_ptr<PooledConnection>>;

    Connections TakeExpired();

    const CurlShare m_share;
    std::mutex m_mutex;
    Connections m_idle; // ordered by last use
};

} // namespace Quendra::Platform
