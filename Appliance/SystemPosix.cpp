#include "System.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace ApplianceParts::System
{

namespace
{

class File final : public IFile
{
public:
    explicit File(int descriptor) : m_descriptor(descriptor) {}
    ~File() override { close(m_descriptor); }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    std::ptrdiff_t ReadAt(std::uint64_t offset, char* buffer, std::size_t size) override
    {
        std::ptrdiff_t result = 0;
        do
            result = pread(m_descriptor, buffer, size, static_cast<off_t>(offset));
        while (result < 0 && errno == EINTR);
        return result;
    }

private:
    int m_descriptor;
};

sigset_t EndSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

} // namespace

void PrepareListener(Socket socket)
{
    const int on = 1;
    setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

bool WaitFor(Socket socket, Wait wait, std::chrono::milliseconds time)
{
    pollfd entry{static_cast<int>(socket), static_cast<short>(wait == Wait::Readable ? POLLIN : POLLOUT), 0};
    return poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

std::shared_ptr<IFile> OpenFile(const std::filesystem::path& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "cannot open a file");
    return std::make_shared<File>(descriptor);
}

void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path&)
{
    std::filesystem::rename(from, to);
}

bool IsFileName(std::u8string_view name)
{
    return name.find(u8'/') == std::u8string_view::npos && name.find(u8'\0') == std::u8string_view::npos;
}

std::vector<std::string> Arguments(int count, char** arguments)
{
    return {arguments + std::min(count, 1), arguments + count};
}

// Threads inherit the signal mask, so only `WaitForEnd` takes these signals.
void PrepareEnd()
{
    const sigset_t signals = EndSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void WaitForEnd()
{
    const sigset_t signals = EndSignals();
    int signal = 0;
    sigwait(&signals, &signal);
}

} // namespace ApplianceParts::System
