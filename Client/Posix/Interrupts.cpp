#include "System.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iterator>
#include <thread>
#include <unistd.h>

namespace System
{
namespace
{

// The write end of the pipe that wakes the watching thread. Global, because a signal handler gets only the signal's number.
std::atomic<int> wakeDescriptor{-1};
static_assert(std::atomic<int>::is_always_lock_free);

constexpr char kInterrupted = 'i';
constexpr char kStop = 's';

// Ctrl-C, the end of the session, and `kill`.
constexpr int kSignals[] = {SIGINT, SIGHUP, SIGTERM};

extern "C" void OnInterrupt(int /*signal*/)
{
    const int savedError = errno;
    [[maybe_unused]] const ssize_t written = write(wakeDescriptor.load(), &kInterrupted, 1);
    errno = savedError;
}

class SignalWatch final : public InterruptWatch
{
public:
    explicit SignalWatch(std::function<void()> interrupted)
    {
        if (pipe2(m_pipe, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "Ctrl-C cannot be watched");
        m_thread = std::thread([this, callback = std::move(interrupted)] {
            char wake = 0;
            if (read(m_pipe[0], &wake, 1) == 1 && wake == kInterrupted)
                callback();
        });
        wakeDescriptor.store(m_pipe[1]);
        struct sigaction action = {};
        action.sa_handler = OnInterrupt;
        action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND); // the second one ends the program
        for (std::size_t index = 0; index < std::size(kSignals); ++index)
        {
            sigaction(kSignals[index], &action, &m_previous[index]);
            // nohup ignores SIGHUP. A shell that starts a program in the background ignores SIGINT, which is watched all the same.
            if (kSignals[index] != SIGINT && m_previous[index].sa_handler == SIG_IGN)
                sigaction(kSignals[index], &m_previous[index], nullptr);
        }
    }

    ~SignalWatch() override
    {
        for (std::size_t index = 0; index < std::size(kSignals); ++index)
            sigaction(kSignals[index], &m_previous[index], nullptr);
        wakeDescriptor.store(-1);
        [[maybe_unused]] const ssize_t written = write(m_pipe[1], &kStop, 1);
        m_thread.join();
        close(m_pipe[0]);
        close(m_pipe[1]);
    }

private:
    int m_pipe[2] = {-1, -1};
    std::thread m_thread;
    struct sigaction m_previous[std::size(kSignals)] = {};
};

} // namespace

std::unique_ptr<InterruptWatch> WatchInterrupts(std::function<void()> interrupted)
{
    return std::make_unique<SignalWatch>(std::move(interrupted));
}

} // namespace System
