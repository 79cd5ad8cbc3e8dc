#pragma once

/// @file
/// How the thread that closes a request's handle reaches the thread that is blocked in a call on it.

#include <curl/curl.h>

#include <atomic>
#include <mutex>

/// A flag that is raised once, and wakes whoever drives the request's transfer at that moment.
class Interruption
{
public:
    /// From any thread.
    void Raise() noexcept
    {
        const std::lock_guard lock(m_mutex);
        m_raised.store(true, std::memory_order_release);
        if (m_driven != nullptr)
        {
            curl_multi_wakeup(m_driven);
        }
    }

    bool IsRaised() const noexcept { return m_raised.load(std::memory_order_acquire); }

    /// Names the handle that is driven from now on (null: none). It must outlive its being named here.
    void SetDriven(CURLM* multi) noexcept
    {
        const std::lock_guard lock(m_mutex);
        m_driven = multi;
    }

private:
    std::mutex m_mutex;
    std::atomic<bool> m_raised{false};
    CURLM* m_driven = nullptr;
};
