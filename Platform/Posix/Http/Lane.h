#pragma once

/// @file
/// Lanes: the connections to servers that a session keeps for its requests.
///
/// A lane is one curl multi handle with the connections that it keeps open, and one easy handle with its TLS sessions. A
/// request borrows a lane for one exchange, so one thread at a time drives it; connections are never shared between threads.
/// The lane that came back last goes out first: requests one after another travel on one TCP connection, and requests at
/// the same time on as many as there are of them.

#include <curl/curl.h>

#include <memory>
#include <mutex>
#include <vector>

class Lane
{
public:
    /// @throws std::bad_alloc
    Lane();

    CURLM* Multi() const noexcept { return m_multi.get(); }
    CURL* Easy() const noexcept { return m_easy.get(); }

private:
    struct Cleanup
    {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };
    struct EasyCleanup
    {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };

    // The easy handle goes first when a lane ends.
    std::unique_ptr<CURLM, Cleanup> m_multi;
    std::unique_ptr<CURL, EasyCleanup> m_easy;
};

/// The lanes of a session that no request uses just now. Thread-safe.
class LanePool : public std::enable_shared_from_this<LanePool>
{
public:
    LanePool();

    /// Puts a borrowed lane back into its pool.
    class Return
    {
    public:
        explicit Return(std::shared_ptr<LanePool> pool = nullptr) noexcept : m_pool(std::move(pool)) {}
        void operator()(Lane* lane) const noexcept;

    private:
        std::shared_ptr<LanePool> m_pool;
    };
    using Borrowed = std::unique_ptr<Lane, Return>;

    /// @throws std::bad_alloc
    Borrowed Borrow();

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Lane>> m_idle;
};
