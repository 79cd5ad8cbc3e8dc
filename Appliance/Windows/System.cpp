#include "System.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <io.h>
#include <system_error>
#include <thread>
#include <winsock2.h>

namespace ApplianceParts::System
{

void PrepareListener(NativeSocket socket)
{
    const BOOL on = TRUE;
    setsockopt(static_cast<SOCKET>(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on), sizeof on);
}

bool WaitFor(NativeSocket socket, Wait wait, std::chrono::milliseconds time)
{
    WSAPOLLFD entry{static_cast<SOCKET>(socket), static_cast<SHORT>(wait == Wait::Writable ? POLLWRNORM : POLLRDNORM), 0};
    if (WSAPoll(&entry, 1, static_cast<int>(time.count())) <= 0)
        return false;
    char next = 0;
    if (wait != Wait::Ended || recv(entry.fd, &next, 1, MSG_PEEK) <= 0)
        return true;
    std::this_thread::sleep_for(time); // unread data hides the end
    return false;
}

std::shared_ptr<std::FILE> OpenFile(const std::filesystem::path& path, std::uint64_t offset)
{
    // Sharing deletion lets others rename and remove the file meanwhile.
    const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "cannot open a file");
    // The C library has a limit of its own for open files.
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_RDONLY);
    std::FILE* const file = descriptor < 0 ? nullptr : _fdopen(descriptor, "rb");
    if (file == nullptr)
    {
        (void)(descriptor < 0 ? CloseHandle(handle) : _close(descriptor));
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open), "cannot open a file");
    }
    _lseeki64(descriptor, static_cast<std::int64_t>(offset), SEEK_SET);
    return {file, &std::fclose};
}

void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path& aside)
{
    std::error_code failed;
    std::filesystem::rename(from, to, failed);
    if (!failed)
        return;
    if (!std::filesystem::is_regular_file(to))
        throw std::system_error(failed, "cannot rename");
    // An open file can be renamed, but not replaced by a rename.
    std::filesystem::rename(to, aside);
    std::filesystem::rename(from, to, failed);
    if (failed)
    {
        std::filesystem::rename(aside, to);
        throw std::system_error(failed, "cannot replace a file");
    }
    std::filesystem::remove(aside, failed);
}

bool IsFileName(const std::filesystem::path& name)
{
    constexpr std::size_t kLongestName = 255;
    const auto isForbidden = [](wchar_t unit) { return unit < L' ' || std::wstring_view(L"<>:\"/\\|?*").find(unit) != std::wstring::npos; };
    if (name.native().size() > kLongestName || std::any_of(name.native().begin(), name.native().end(), isForbidden))
        return false;
    // The system drops dots and spaces at the end, and changes the paths of devices such as "NUL".
    const std::wstring path = L"C:\\" + name.native();
    std::array<wchar_t, kLongestName + 10> full{};
    GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    return path == full.data();
}

} // namespace ApplianceParts::System
