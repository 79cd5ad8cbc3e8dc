/// @file
/// Events, and the closing of every kind of kernel handle.

#include "CallGuard.h"
#include "KernelObject.h"

#include <chrono>
#include <condition_variable>

namespace
{
class Event final : public KernelObject
{
public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_signalled(signalled) {}

    void Set()
    {
        const std::lock_guard lock(m_mutex);
        m_signalled = true;
        if (m_manualReset)
        {
            m_changed.notify_all();
        }
        else
        {
            m_changed.notify_one();
        }
    }

    void Reset()
    {
        const std::lock_guard lock(m_mutex);
        m_signalled = false;
    }

    /// @return whether the event was signalled in time; an automatic event is then taken by this waiter alone.
    bool Wait(DWORD milliseconds)
    {
        std::unique_lock lock(m_mutex);
        const auto isSignalled = [this] { return m_signalled; };
        if (milliseconds == INFINITE)
        {
            m_changed.wait(lock, isSignalled);
        }
        else if (!m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), isSignalled))
        {
            return false;
        }
        m_signalled = m_manualReset;
        return true;
    }

private:
    const bool m_manualReset;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_signalled;
};

/// Runs the action on the event behind the handle.
template <class Action> BOOL WithEvent(HANDLE handle, Action action) noexcept
{
    return SucceedsAsCall([&]() -> DWORD {
        const auto event = FindKernelObject<Event>(handle);
        if (!event)
        {
            return ERROR_INVALID_HANDLE;
        }
        action(*event);
        return ERROR_SUCCESS;
    });
}
} // namespace

BOOL CloseHandle(HANDLE handle) noexcept
{
    const DWORD error = ErrorOf([&]() -> DWORD { return KernelHandles::Instance().Remove(handle) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
    if (error != ERROR_SUCCESS)
    {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

HANDLE CreateEventW(void* attributes, BOOL manualReset, BOOL initialState, LPCWSTR name) noexcept
{
    HANDLE handle = nullptr;
    SucceedsAsCall([&]() -> DWORD {
        if (attributes != nullptr || name != nullptr)
        {
            return ERROR_INVALID_PARAMETER;
        }
        handle = KernelHandles::Instance().Insert(std::make_shared<Event>(manualReset != FALSE, initialState != FALSE));
        return ERROR_SUCCESS;
    });
    return handle;
}

BOOL SetEvent(HANDLE event) noexcept
{
    return WithEvent(event, [](Event& found) { found.Set(); });
}

BOOL ResetEvent(HANDLE event) noexcept
{
    return WithEvent(event, [](Event& found) { found.Reset(); });
}

DWORD WaitForSingleObject(HANDLE event, DWORD milliseconds) noexcept
{
    DWORD result = WAIT_FAILED;
    WithEvent(event, [&](Event& found) { result = found.Wait(milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT; });
    return result;
}
