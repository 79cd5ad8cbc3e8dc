#include "ConnectionThreads.h"

namespace ApplianceParts
{

void ConnectionThreads::enqueue(std::function<void()> connection)
{
    std::unique_lock lock(m_mutex);
    while (m_running.size() >= m_most)
    {
        lock.unlock();
        m_makeRoom();
        lock.lock();
        m_finishedOne.wait_for(lock, std::chrono::milliseconds(100), [this] { return m_running.size() < m_most; });
    }
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
