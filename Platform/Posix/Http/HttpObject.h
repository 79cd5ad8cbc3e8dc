#pragma once

/// @file
/// The base of the objects behind an `HINTERNET`: sessions, connections and requests.

#include "../HandleTable.h"
#include "../WinHttp.h"

#include <mutex>
#include <utility>

namespace Quendra::Platform
{

/// A value that one thread may change while another reads it.
template <typename Value> class Guarded
{
public:
    explicit Guarded(Value value) : m_value(std::move(value)) {}

    Value Get() const
    {
        const std::lock_guard lock(m_mutex);
        return m_value;
    }

    /// Changes the value atomically.
    template <typename Change> void Update(Change change)
    {
        const std::lock_guard lock(m_mutex);
        change(m_value);
    }

private:
    mutable std::mutex m_mutex;
    Value m_value;
};

/// Milliseconds; 0 or less is no limit.
struct Timeouts
{
    int resolve = 0;
    int connect = 60'000;
    int send = 30'000;
    int receive = 30'000;
};

/// The status callback and the notifications that it gets; null for none.
struct StatusListener
{
    WINHTTP_STATUS_CALLBACK callback = nullptr;
    DWORD notifications = 0; ///< a mask of WINHTTP_CALLBACK_STATUS_*
    DWORD_PTR context = 0;
};

/// A session, a connection or a request. A child keeps its parent alive, so handles may be closed in any order.
class HttpObject
{
public:
    /// @param parent  whose listener it inherits; null for a session.
    explicit HttpObject(const HttpObject* parent = nullptr) : listener(parent != nullptr ? parent->listener.Get() : StatusListener()) {}
    virtual ~HttpObject() = default;

    HttpObject(const HttpObject&) = delete;
    HttpObject& operator=(const HttpObject&) = delete;

    /// Called when the handle is closed, possibly while another thread is inside a call on the object.
    virtual void OnClosed() noexcept {}

    /// The object's own handle: set once, when it is made.
    HINTERNET Handle() const noexcept { return m_handle; }
    void SetHandle(HINTERNET handle) noexcept { m_handle = handle; }

    Guarded<StatusListener> listener;

private:
    HINTERNET m_handle = nullptr;
};

using HttpHandles = HandleTable<HttpObject>;

/// An object with timeouts.
class TimedObject : public HttpObject
{
public:
    TimedObject(const HttpObject* parent, const Timeouts& initial) : HttpObject(parent), timeouts(initial) {}

    Guarded<Timeouts> timeouts;
};

} // namespace Quendra::Platform
