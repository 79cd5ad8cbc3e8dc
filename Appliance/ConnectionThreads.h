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
    /// Runs a connection on a thread of its own. Waits while as many run as the appliance serves at once.
    void enqueue(std::function<void()> connection) override;

    /// Returns when every connection has ended.
    void shutdown() override;

private:
    using Threads = std::list<std::thread>;

    void JoinFinished(std::unique_lock<std::mutex>& lock);

    std::mutex m_mutex;
    std::condition_variable m_finishedOne;
    Threads m_running;
    Threads m_finished;
};

} // namespace ApplianceParts
