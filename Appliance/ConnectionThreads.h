#pragma once

/// @file
/// A thread for each connection, so that one that waits (a change feed, a slow reader) never holds up another.

#include <httplib.h>

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace ApplianceParts
{

class ConnectionThreads final : public httplib::TaskQueue
{
public:
    /// @param most      connections that run at once.
    /// @param makeRoom  called when a connection comes and that many run: ends one that nobody will miss, if there is one.
    ConnectionThreads(std::size_t most, std::function<void()> makeRoom) : m_most(most), m_makeRoom(std::move(makeRoom)) {}

    /// Runs a connection on a thread of its own. Waits while too many run.
    void enqueue(std::function<void()> connection) override;

    /// Returns when every connection has ended.
    void shutdown() override;

private:
    using Threads = std::list<std::thread>;

    void JoinFinished(std::unique_lock<std::mutex>& lock);

    std::size_t m_most;
    std::function<void()> m_makeRoom;
    std::mutex m_mutex;
    std::condition_variable m_finishedOne;
    Threads m_running;
    Threads m_finished;
};

} // namespace ApplianceParts
