#pragma once

/// @file
/// The base of the objects behind an `HINTERNET`: sessions, connections and requests.

#include "../HandleTable.h"
#include "../WinHttp.h"

#include <mutex>

/// A session, a connection or a request. A child keeps its parent alive, so handles may be closed in any order.
class HttpObject
{
public:
    HttpObject() = default;
    virtual ~HttpObject() = default;

    HttpObject(const HttpObject&) = delete;
    HttpObject& operator=(const HttpObject&) = delete;

    /// Called when the handle is closed, possibly while another thread is inside a call on the object.
    virtual void OnClosed() noexcept {}
};

using HttpHandles = HandleTable<HttpObject>;

/// Milliseconds; 0 or less is no limit.
struct Timeouts
{
    int resolve = 0;
    int connect = 60'000;
    int send = 30'000;
    int receive = 30'000;
};

/// An object whose timeouts may be set while another thread reads them.
class TimedObject : public HttpObject
{
public:
    explicit TimedObject(const Timeouts& timeouts) : m_timeouts(timeouts) {}

    Timeouts GetTimeouts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_timeouts;
    }

    /// Changes the timeouts atomically.
    template <class Change> void ChangeTimeouts(Change change)
    {
        const std::lock_guard lock(m_mutex);
        change(m_timeouts);
    }

private:
    mutable std::mutex m_mutex;
    Timeouts m_timeouts;
};
