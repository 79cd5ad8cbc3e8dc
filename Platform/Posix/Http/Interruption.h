#pragma once

/// @file
/// Ends a call that waits for the network when another thread closes the request's handle or the caller's event is signalled.

#include "../Win32.h"

#include <curl/curl.h>

#include <atomic>
#include <mutex>

namespace Quendra::Platform
{

/// A flag that is set once; setting it wakes the thread that drives the request's transfer.
class Interruption
{
public:
    /// May be called from any thread.
    void Raise() noexcept
    {
        const std::lock_guard lock(m_mutex);
        m_raised.store(true, std::memory_order_release);
        if (m_multi != nullptr)
            curl_multi_wakeup(m_multi);
    }

    /// Sets an event that ends waiting calls, too. To be called by the thread that makes these calls.
    void SetEvent(HANDLE event) noexcept { m_event = event; }
    bool HasEvent() const noexcept { return m_event != nullptr; }
    bool IsEventSignalled() const noexcept { return m_event != nullptr && WaitForSingleObject(m_event, 0) == WAIT_OBJECT_0; }

    bool IsRaised() const noexcept { return m_raised.load(std::memory_order_acquire); }

    /// Sets the multi handle that `Raise` wakes up (null: none). It must stay valid until another one is set.
    void SetMulti(CURLM* multi) noexcept
    {
        const std::lock_guard lock(m_mutex);
        m_multi = multi;
    }

private:
    std::mutex m_mutex;
    std::atomic<bool> m_raised{false};
    CURLM* m_multi = nullptr;
    HANDLE m_event = nullptr;
};

} // namespace Quendra::Platform
