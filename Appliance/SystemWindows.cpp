#include "System.h"

#include <climits>

#include <algorithm>
#include <array>
#include <string>
#include <system_error>
#include <winsock2.h>

namespace ApplianceParts::System
{

namespace
{

constexpr std::size_t kLongestName = 255;

class File final : public IFile
{
public:
    explicit File(HANDLE handle) : m_handle(handle) {}
    ~File() override { CloseHandle(m_handle); }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    std::ptrdiff_t ReadAt(std::uint64_t offset, char* buffer, std::size_t size) override
    {
        OVERLAPPED position{};
        position.Offset = static_cast<DWORD>(offset);
        position.OffsetHigh = static_cast<DWORD>(offset >> 32U);
        DWORD count = 0;
        if (!ReadFile(m_handle, buffer, static_cast<DWORD>(std::min<std::size_t>(size, INT_MAX)), &count, &position))
            return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
        return static_cast<std::ptrdiff_t>(count);
    }

private:
    HANDLE m_handle;
};

// In UTF-16 units, which file systems count.
std::size_t LengthOf(std::u8string_view name)
{
    std::size_t length = 0;
    for (const char8_t unit : name)
        length += unit >= 0xF0 ? 2 : (unit & 0xC0) != 0x80 ? 1 : 0;
    return length;
}

// Names that are devices in every folder, whatever their extension.
bool IsDeviceName(std::u8string_view name)
{
    std::string stem;
    for (const char8_t unit : name.substr(0, name.find(u8'.')))
        stem += static_cast<char>(unit >= u8'a' && unit <= u8'z' ? unit - 32 : unit);
    static constexpr std::array<std::string_view, 4> kDevices = {"CON", "PRN", "AUX", "NUL"};
    if (std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end())
        return true;
    return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) && stem[3] >= '0' && stem[3] <= '9';
}

HANDLE endEvent = nullptr;

BOOL WINAPI OnConsoleControl(DWORD)
{
    return SetEvent(endEvent);
}

} // namespace

void PrepareListener(Socket socket)
{
    const BOOL on = TRUE;
    setsockopt(static_cast<SOCKET>(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on), sizeof on);
}

bool WaitFor(Socket socket, Wait wait, std::chrono::milliseconds time)
{
    WSAPOLLFD entry{static_cast<SOCKET>(socket), static_cast<SHORT>(wait == Wait::Readable ? POLLRDNORM : POLLWRNORM), 0};
    return WSAPoll(&entry, 1, static_cast<int>(time.count())) > 0;
}

std::shared_ptr<IFile> OpenFile(const std::filesystem::path& path)
{
    // Sharing deletion lets others rename and remove the file meanwhile.
    const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "cannot open a file");
    return std::make_shared<File>(handle);
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

bool IsFileName(std::u8string_view name)
{
    const auto isForbidden = [](char8_t unit) {
        return unit < 0x20 || std::u8string_view(u8"<>:\"/\\|?*").find(unit) != std::u8string_view::npos;
    };
    return LengthOf(name) <= kLongestName && std::none_of(name.begin(), name.end(), isForbidden) && !name.ends_with(u8'.') &&
           !name.ends_with(u8' ') && !IsDeviceName(name);
}

// The arguments of `main` are in the system's code page.
std::vector<std::string> Arguments(int, char**)
{
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int index = 1; index < count; ++index)
    {
        const auto text = std::filesystem::path(wide[index]).u8string();
        arguments.emplace_back(text.begin(), text.end());
    }
    LocalFree(static_cast<HLOCAL>(wide));
    return arguments;
}

void PrepareEnd()
{
    endEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

void WaitForEnd()
{
    WaitForSingleObject(endEvent, INFINITE);
}

} // namespace ApplianceParts::System
