#include "System.h"

#include "Platform/Platform.h"

#include <mutex>
#include <utility>

namespace System
{
namespace
{

// The console calls its handlers on a new thread, with only the event's number, so the watch is global. The lock is held during the
// callback, so that the watch's destructor waits for it.
struct Watched
{
    std::mutex lock;
    std::function<void()> interrupted;
};

Watched& TheWatched()
{
    static Watched watched;
    return watched;
}

BOOL WINAPI OnConsoleEvent(DWORD event)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    Watched& watched = TheWatched();
    // A second Ctrl-C finds the lock held or no watch, and goes to the next handler, which ends the program.
    const std::unique_lock lock(watched.lock, std::try_to_lock);
    if (!lock)
        return FALSE;
    const auto interrupted = std::exchange(watched.interrupted, nullptr);
    if (!interrupted)
        return FALSE;
    interrupted();
    return TRUE;
}

class ConsoleWatch final : public InterruptWatch
{
public:
    explicit ConsoleWatch(std::function<void()> interrupted)
    {
        TheWatched().interrupted = std::move(interrupted);
        // Enables Ctrl-C even if the program was started with it disabled, as on the other platforms.
        SetConsoleCtrlHandler(nullptr, FALSE);
        if (!SetConsoleCtrlHandler(OnConsoleEvent, TRUE))
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "Ctrl-C cannot be watched");
    }

    ~ConsoleWatch() override
    {
        SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
        const std::lock_guard lock(TheWatched().lock);
        TheWatched().interrupted = nullptr;
    }
};

} // namespace

std::unique_ptr<InterruptWatch> WatchInterrupts(std::function<void()> interrupted)
{
    return std::make_unique<ConsoleWatch>(std::move(interrupted));
}

} // namespace System
