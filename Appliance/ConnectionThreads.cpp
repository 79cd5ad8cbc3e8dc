#include "ConnectionThreads.h"

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kMostConnections = 1000;

} // namespace

void ConnectionThreads::enqueue(std::function<void()> connection)
{
    std::unique_lock lock(m_mutex);
    m_finishedOne.wait(lock, [this] { return m_running.size() < kMostConnections; });
    JoinFinished(lock);
    const auto self = m_running.emplace(m_running.end());
    *self = std::thread([this, self, connection = std::move(connection)] {
        connection();
        const std::lock_guard guard(m_mutex);
        m_finished.splice(m_finished.end(), m_running, self);
        m_finishedOne.notify_all();
    });
}

void ConnectionThreads::shutdown()
{
    std::unique_lock lock(m_mutex);
    m_finishedOne.wait(lock, [this] { return m_running.empty(); });
    JoinFinished(lock);
}

void ConnectionThreads::JoinFinished(std::unique_lock<std::mutex>& lock)
{
    Threads finished;
    finished.swap(m_finished);
    lock.unlock();
    for (auto& thread : finished)
        thread.join();
    lock.lock();
}

} // namespace ApplianceParts
