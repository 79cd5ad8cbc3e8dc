#pragma once

/// @file
/// The connections to servers that a session keeps for its requests.
///
/// A pooled connection is one curl multi handle with the one connection that it keeps open. A request borrows it for one
/// exchange, so one thread at a time drives it. The one that came back last goes out first: requests one after another travel
/// on one TCP connection, and requests at the same time on as many as there are of them.

#include "CurlShare.h"

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class PooledConnection
{
public:
    using Clock = std::chrono::steady_clock;

    /// @throws std::bad_alloc
    explicit PooledConnection(std::string origin);

    CURLM* Multi() const noexcept { return m_multi.get(); }

    /// The server: scheme, name and port, as they stand in a URL.
    const std::string& Origin() const noexcept { return m_origin; }

    Clock::duration IdleTime() const noexcept { return Clock::now() - m_lastUsed; }
    void SetUsed() noexcept { m_lastUsed = Clock::now(); }

private:
    struct Cleanup
    {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };

    const std::string m_origin;
    std::unique_ptr<CURLM, Cleanup> m_multi;
    Clock::time_point m_lastUsed = Clock::now();
};

/// The connections of a session that no request uses just now. Thread-safe.
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

    /// A connection to a server: a kept one, or one that is yet to be made.
    /// @throws std::bad_alloc
    Borrowed Borrow(const std::string& origin);

    CURLSH* Share() const noexcept { return m_share.Get(); }

private:
    using Connections = std::vector<std::unique_ptr<PooledConnection>>;

    Connections TakeExpired();

    const CurlShare m_share;
    std::mutex m_mutex;
    Connections m_idle; // in the order of their last use
};
