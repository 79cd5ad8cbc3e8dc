// Files over POSIX descriptors.

#include "CallGuard.h"
#include "KernelObject.h"
#include "SystemErrors.h"
#include "Utf8.h"

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace Quendra::Platform
{

namespace
{

class File final : public KernelObject
{
public:
    explicit File(int descriptor) noexcept : m_descriptor(descriptor) {}
    ~File() override { ::close(m_descriptor); }

    int Descriptor() const noexcept { return m_descriptor; }

private:
    const int m_descriptor;
};

DWORD LastSystemError()
{
    return Win32Error(errno);
}

// Win32 has a separate error value for a missing folder in the path; POSIX has one error for both.
DWORD OpenError(const std::string& path)
{
    const int error = errno;
    const auto slash = path.find_last_of('/');
    if (error == ENOENT && slash != std::string::npos && slash != 0 && ::access(path.substr(0, slash).c_str(), F_OK) != 0)
        return ERROR_PATH_NOT_FOUND;
    return Win32Error(error);
}

// Whether it is a device that never blocks: null, zero or full. Any other device, a pipe or a socket can block a caller forever.
bool NeverWaits(const struct stat& status)
{
    constexpr unsigned kMemoryDevices = 1;
    const unsigned device = minor(status.st_rdev);
    return S_ISCHR(status.st_mode) && major(status.st_rdev) == kMemoryDevices && (device == 3 || device == 5 || device == 7);
}

// Enforces the sharing modes among opens through this library, in all processes. File systems without such locks have no sharing.
DWORD Lock(int descriptor, DWORD sharing)
{
    const int kind = sharing == 0 ? LOCK_EX : LOCK_SH;
    return ::flock(descriptor, kind | LOCK_NB) != 0 && errno == EWOULDBLOCK ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

// Makes a file that was opened with O_NONBLOCK, which regular files ignore, ready for use. The content is truncated last.
DWORD Prepare(int descriptor, DWORD sharing, DWORD disposition)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0)
        return LastSystemError();
    if (S_ISDIR(status.st_mode))
        return ERROR_ACCESS_DENIED;
    if (!S_ISREG(status.st_mode))
        return NeverWaits(status) ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
    if (const DWORD error = Lock(descriptor, sharing); error != ERROR_SUCCESS)
        return error;
    return disposition != CREATE_ALWAYS || ::ftruncate(descriptor, 0) == 0 ? ERROR_SUCCESS : LastSystemError();
}

int OpenFlags(DWORD access, DWORD disposition)
{
    const bool reads = (access & GENERIC_READ) != 0;
    const bool writes = (access & GENERIC_WRITE) != 0;
    const int mode = writes ? (reads ? O_RDWR : O_WRONLY) : O_RDONLY;
    return mode | (disposition == CREATE_ALWAYS ? O_CREAT : 0) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
}

DWORD Open(const std::string& path, DWORD access, DWORD sharing, DWORD disposition, HANDLE& handle)
{
    constexpr mode_t kNewFileMode = 0666;
    int descriptor = -1;
    do
    {
        descriptor = ::open(path.c_str(), OpenFlags(access, disposition), kNewFileMode); // NOLINT(cppcoreguidelines-pro-type-vararg)
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return OpenError(path);
    auto file = std::make_shared<File>(descriptor);
    if (const DWORD error = Prepare(descriptor, sharing, disposition); error != ERROR_SUCCESS)
        return error;
    handle = KernelHandles::Instance().Insert(std::move(file));
    return ERROR_SUCCESS;
}

template <typename Action> BOOL WithFile(HANDLE handle, Action action) noexcept
{
    return SucceedsAsCall([&]() -> DWORD {
        const auto file = FindKernelObject<File>(handle);
        return file ? action(file->Descriptor()) : ERROR_INVALID_HANDLE;
    });
}

// Repeats a transfer until all bytes are moved, the file ends or it fails; bytes moved before a failure are reported.
template <typename Step> DWORD Transfer(DWORD bytes, DWORD& moved, Step step)
{
    // One system call moves less than 2 GiB.
    constexpr DWORD kLargestStep = 0x40000000;
    moved = 0;
    while (moved < bytes)
    {
        const auto count = step(moved, std::min(bytes - moved, kLargestStep));
        if (count < 0 && errno != EINTR)
            return LastSystemError();
        if (count == 0)
            break;
        moved += count > 0 ? static_cast<DWORD>(count) : 0;
    }
    return ERROR_SUCCESS;
}

} // namespace

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, void* security, DWORD disposition, DWORD /*attributes*/,
                   HANDLE pattern) noexcept
{
    HANDLE handle = INVALID_HANDLE_VALUE;
    SucceedsAsCall([&]() -> DWORD {
        if (path == nullptr || *path == L'\0')
            return ERROR_PATH_NOT_FOUND;
        if (security != nullptr || pattern != nullptr || (disposition != CREATE_ALWAYS && disposition != OPEN_EXISTING))
            return ERROR_INVALID_PARAMETER;
        const auto utf8 = ToUtf8Strict(path);
        return utf8 ? Open(*utf8, access, sharing, disposition, handle) : ERROR_INVALID_NAME;
    });
    return handle;
}

DWORD GetFullPathNameW(LPCWSTR path, DWORD capacity, LPWSTR fullPath, LPWSTR* filePart) noexcept
{
    DWORD length = 0;
    SucceedsAsCall([&]() -> DWORD {
        if (path == nullptr || filePart != nullptr)
            return ERROR_INVALID_PARAMETER;
        if (*path == L'\0')
            return ERROR_INVALID_NAME;
        const auto folder = *path == L'/' ? std::wstring() : ToWideText(std::filesystem::current_path().native()) + L'/';
        const auto absolute = folder + path;
        length = static_cast<DWORD>(absolute.size());
        if (length < capacity)
            std::wmemcpy(fullPath, absolute.c_str(), absolute.size() + 1);
        else
            ++length;
        return ERROR_SUCCESS;
    });
    return length;
}

DWORD GetFileType(HANDLE file) noexcept
{
    DWORD type = FILE_TYPE_UNKNOWN;
    WithFile(file, [&](int descriptor) -> DWORD {
        struct stat status = {};
        if (::fstat(descriptor, &status) != 0)
            return LastSystemError();
        type = S_ISREG(status.st_mode) ? FILE_TYPE_DISK : FILE_TYPE_CHAR;
        return ERROR_SUCCESS;
    });
    return type;
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) noexcept
{
    return WithFile(file, [&](int descriptor) -> DWORD {
        struct stat status = {};
        if (size == nullptr)
            return ERROR_INVALID_PARAMETER;
        if (::fstat(descriptor, &status) != 0)
            return LastSystemError();
        size->QuadPart = status.st_size;
        return ERROR_SUCCESS;
    });
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method) noexcept
{
    return WithFile(file, [&](int descriptor) -> DWORD {
        if (method != FILE_BEGIN)
            return ERROR_INVALID_PARAMETER;
        if (distance.QuadPart < 0)
            return ERROR_NEGATIVE_SEEK;
        const auto reached = ::lseek(descriptor, distance.QuadPart, SEEK_SET);
        if (reached < 0)
            return LastSystemError();
        if (position != nullptr)
            position->QuadPart = reached;
        return ERROR_SUCCESS;
    });
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, DWORD* bytesRead, void* overlapped) noexcept
{
    return WithFile(file, [&](int descriptor) -> DWORD {
        if (overlapped != nullptr || bytesRead == nullptr || (buffer == nullptr && bytes != 0))
            return ERROR_INVALID_PARAMETER;
        return Transfer(bytes, *bytesRead,
                        [&](DWORD moved, DWORD count) { return ::read(descriptor, static_cast<char*>(buffer) + moved, count); });
    });
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten, void* overlapped) noexcept
{
    return WithFile(file, [&](int descriptor) -> DWORD {
        if (overlapped != nullptr || bytesWritten == nullptr || (buffer == nullptr && bytes != 0))
            return ERROR_INVALID_PARAMETER;
        return Transfer(bytes, *bytesWritten,
                        [&](DWORD moved, DWORD count) { return ::write(descriptor, static_cast<const char*>(buffer) + moved, count); });
    });
}

void OutputDebugStringW(LPCWSTR /*text*/) noexcept
{
}

} // namespace Quendra::Platform
