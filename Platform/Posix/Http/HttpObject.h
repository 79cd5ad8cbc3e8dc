#pragma once

/// @file
/// The base of the objects behind an `HINTERNET`: sessions, connections and requests.

#include "../HandleTable.h"
#include "../WinHttp.h"

#include <mutex>

namespace Quendra::Platform
{
/// Milliseconds; 0 or less is no limit.
struct Timeouts
{
    int resolve = 0;
    int connect = 60'000;
    int send = 30'000;
    int receive = 30'000;
};

/// Who is notified of what; without a callback nobody is.
struct StatusListener
{
    WINHTTP_STATUS_CALLBACK callback = nullptr;
    DWORD notifications = 0; ///< a mask of WINHTTP_CALLBACK_STATUS_*
    DWORD_PTR context = 0;
};

/// A session, a connection or a request. A child keeps its parent alive, so handles may be closed in any order. Its settings may be changed
/// while another thread reads them.
class HttpObject
{
public:
    /// @param parent  whose listener it inherits; null for a session.
    explicit HttpObject(const HttpObject* parent = nullptr) : m_listener(parent != nullptr ? parent->Listener() : StatusListener()) {}
    virtual ~HttpObject() = default;

    HttpObject(const HttpObject&) = delete;
    HttpObject& operator=(const HttpObject&) = delete;

    /// Called when the handle is closed, possibly while another thread is inside a call on the object.
    virtual void OnClosed() noexcept {}

    /// The object's own handle: set once, when it is made.
    HINTERNET Handle() const noexcept { return m_handle; }
    void SetHandle(HINTERNET handle) noexcept { m_handle = handle; }

    StatusListener Listener() const
    {
        const std::lock_guard lock(m_mutex);
        return m_listener;
    }

    /// Changes the listener atomically.
    template <class Change> void ChangeListener(Change change)
    {
        const std::lock_guard lock(m_mutex);
        change(m_listener);
    }

protected:
    mutable std::mutex m_mutex;

private:
    HINTERNET m_handle = nullptr;
    StatusListener m_listener;
};

using HttpHandles = HandleTable<HttpObject>;

/// An object with timeouts.
class TimedObject : public HttpObject
{
public:
    TimedObject(const HttpObject* parent, const Timeouts& timeouts) : HttpObject(parent), m_timeouts(timeouts) {}

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
    Timeouts m_timeouts;
};
} // namespace Quendra::Platform
