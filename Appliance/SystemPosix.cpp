#include "System.h"

#include <cerrno>
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

} // namespace

void PrepareListener(Socket socket)
{
    const int on = 1;
    setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

bool WaitReadable(Socket socket, std::chrono::milliseconds timeout)
{
    pollfd entry{static_cast<int>(socket), POLLIN, 0};
    return poll(&entry, 1, static_cast<int>(timeout.count())) > 0;
}

std::ptrdiff_t Receive(Socket socket, char* buffer, std::size_t size)
{
    std::ptrdiff_t result = 0;
    do
        result = recv(static_cast<int>(socket), buffer, size, 0);
    while (result < 0 && errno == EINTR);
    return result;
}

std::ptrdiff_t Send(Socket socket, const char* data, std::size_t size)
{
    std::ptrdiff_t result = 0;
    do
        result = send(static_cast<int>(socket), data, size, MSG_NOSIGNAL);
    while (result < 0 && errno == EINTR);
    return result;
}

void ShutDown(Socket socket)
{
    shutdown(static_cast<int>(socket), SHUT_RDWR);
}

void Close(Socket socket)
{
    close(static_cast<int>(socket));
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

} // namespace ApplianceParts::System
