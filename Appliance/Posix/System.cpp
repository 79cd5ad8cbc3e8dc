#include "System.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace ApplianceParts::System
{

void PrepareListener(NativeSocket socket)
{
    const int on = 1;
    setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

bool WaitFor(NativeSocket socket, Wait wait, std::chrono::milliseconds time)
{
    const auto events = wait == Wait::Readable ? POLLIN : wait == Wait::Writable ? POLLOUT : POLLRDHUP;
    pollfd entry{static_cast<int>(socket), static_cast<short>(events), 0};
    return poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

std::shared_ptr<std::FILE> OpenFile(const std::filesystem::path& path, std::uint64_t offset)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "rb");
    if (file == nullptr)
    {
        const int error = errno;
        close(descriptor);
        throw std::system_error(error, std::generic_category(), "cannot open a file");
    }
    lseek(descriptor, static_cast<off_t>(offset), SEEK_SET);
    return {file, &std::fclose};
}

void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path&)
{
    std::filesystem::rename(from, to);
}

bool IsFileName(const std::filesystem::path& name)
{
    return name.native().find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

} // namespace ApplianceParts::System
