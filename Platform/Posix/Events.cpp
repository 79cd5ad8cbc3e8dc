// Events, and the closing of every kind of kernel handle.

#include "CallGuard.h"
#include "KernelObject.h"

#include <atomic>
#include <chrono>
#include <condition_variable>

namespace Quendra::Platform
{

namespace
{

class Event final : public KernelObject
{
public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_signalled(signalled) {}

    void Set()
    {
        const std::lock_guard lock(m_mutex);
        m_signalled.store(true, std::memory_order_release);
        if (m_manualReset)
            m_changed.notify_all();
        else
            m_changed.notify_one();
    }

    void Reset() { m_signalled.store(false, std::memory_order_release); }

    // Transfers wait for 0 milliseconds once per block: such a wait takes neither a lock nor a system call.
    // @return whether the event was signalled in time; an auto-reset event is then reset, and no other waiter gets it.
    bool Wait(DWORD milliseconds)
    {
        if (milliseconds == 0)
            return Take();
        std::unique_lock lock(m_mutex);
        const auto take = [this] { return Take(); };
        if (milliseconds == INFINITE)
        {
            m_changed.wait(lock, take);
            return true;
        }
        return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), take);
    }

private:
    bool Take()
    {
        return m_signalled.load(std::memory_order_acquire) && (m_manualReset || m_signalled.exchange(false, std::memory_order_acquire));
    }

    const bool m_manualReset;
    std::atomic<bool> m_signalled;
    std::mutex m_mutex;
    std::condition_variable m_changed;
};

// Runs the action on the event behind the handle.
template <typename Action> BOOL WithEvent(HANDLE handle, Action action) noexcept
{
    return SucceedsAsCall([&]() -> DWORD {
        const auto event = FindKernelObject<Event>(handle);
        if (!event)
            return ERROR_INVALID_HANDLE;
        action(*event);
        return ERROR_SUCCESS;
    });
}

} // namespace

BOOL CloseHandle(HANDLE handle) noexcept
{
    const DWORD error = ErrorOf([&]() -> DWORD { return KernelHandles::Instance().Remove(handle) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
    if (error != ERROR_SUCCESS)
        SetLastError(error);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

HANDLE CreateEventW(void* attributes, BOOL manualReset, BOOL initialState, LPCWSTR name) noexcept
{
    HANDLE handle = nullptr;
    SucceedsAsCall([&]() -> DWORD {
        if (attributes != nullptr || name != nullptr)
            return ERROR_INVALID_PARAMETER;
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

} // namespace Quendra::Platform
