#pragma once

/// @file
/// Exclusive use of things that have ids.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace ApplianceParts
{

/// Safe to use from several threads.
class Leases
{
public:
    /// Takes an id for the caller alone, until the result is destroyed.
    /// @param wait  how long to wait for another one that has it.
    /// @return null if it is still taken then.
    [[nodiscard]] std::shared_ptr<const void> Acquire(const std::string& id, std::chrono::seconds wait)
    {
        std::unique_lock lock(m_mutex);
        if (!m_released.wait_for(lock, wait, [&] { return !m_taken.contains(id); }))
            return nullptr;
        m_taken.insert(id);
        return {this, [this, id](const void*) {
                    const std::lock_guard guard(m_mutex);
                    m_taken.erase(id);
                    m_released.notify_all();
                }};
    }

    [[nodiscard]] bool IsTaken(const std::string& id) const
    {
        const std::lock_guard guard(m_mutex);
        return m_taken.contains(id);
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    std::set<std::string> m_taken;
};

} // namespace ApplianceParts
