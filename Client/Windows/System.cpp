#include "System.h"

#include "Failures.h"
#include "PathUtilities.h"
#include "TerminalText.h"
#include "TextComparison.h"
#include "TextConversion.h"

#include "Platform/Platform.h"

#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <io.h>
#include <sddl.h>
#include <shellapi.h>

namespace System
{
namespace
{

struct LocalMemoryDeleter
{
    void operator()(void* memory) const { LocalFree(memory); }
};
template <typename Type> using LocalMemory = std::unique_ptr<Type, LocalMemoryDeleter>;

struct GlobalDeleter
{
    void operator()(void* memory) const { GlobalFree(memory); }
};

struct HandleCloser
{
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

std::error_code LastError()
{
    return {static_cast<int>(GetLastError()), std::system_category()};
}

bool IsConsole(DWORD stream)
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stream), &mode) != 0;
}

class SilentConsole
{
public:
    explicit SilentConsole(HANDLE input) : m_input(input)
    {
        GetConsoleMode(m_input, &m_previous);
        SetConsoleMode(m_input, (m_previous | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT) & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    ~SilentConsole() { SetConsoleMode(m_input, m_previous); }

    SilentConsole(const SilentConsole&) = delete;
    SilentConsole& operator=(const SilentConsole&) = delete;

private:
    HANDLE m_input;
    DWORD m_previous = 0;
};

constexpr std::wstring_view kDevices = L"\\\\.\\";

std::int64_t ToTicks(const FILETIME& time)
{
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

// A security descriptor that grants access to the program's user only; null if the user cannot be determined.
LocalMemory<void> OwnUserOnly()
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return nullptr;
    const Handle tokenOwner(token);
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
    if (!GetTokenInformation(token, TokenUser, buffer.data(), size, &size))
        return nullptr;
    const auto* user = reinterpret_cast<const TOKEN_USER*>(buffer.data());

    LPWSTR sid = nullptr;
    if (!ConvertSidToStringSidW(user->User.Sid, &sid))
        return nullptr;
    const LocalMemory<wchar_t> sidOwner(sid);
    const std::wstring rights = std::wstring(L"D:P(A;;FA;;;") + sid + L")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        return nullptr;
    return LocalMemory<void>(descriptor);
}

std::error_code WriteNewFile(const std::wstring& path, std::string_view content)
{
    const LocalMemory<void> descriptor = OwnUserOnly();
    if (!descriptor)
        return LastError();
    SECURITY_ATTRIBUTES security = {sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE};
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return LastError();
    const Handle fileOwner(file);
    DWORD written = 0;
    if (!WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr) || written != content.size())
        return LastError();
    return {};
}

} // namespace

std::optional<std::string> Environment(const std::string& name)
{
    const std::wstring wideName = ToWide(name);
    std::wstring value;
    DWORD size = GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
    if (size == 0)
        return std::nullopt;
    value.resize(size);
    size = GetEnvironmentVariableW(wideName.c_str(), value.data(), size);
    value.resize(size < value.size() ? size : 0);
    return ToNarrow(value);
}

std::wstring MachineName()
{
    wchar_t name[256] = {};
    DWORD size = 256;
    if (!GetComputerNameExW(ComputerNameDnsHostname, name, &size))
        return {};
    return {name, size};
}

std::string FileOf(const void* function)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<const wchar_t*>(function), &module))
        return {};
    std::wstring file(32768, L'\0'); // the longest possible path
    file.resize(GetModuleFileNameW(module, file.data(), static_cast<DWORD>(file.size())));
    return ToNarrow(file);
}

std::string Platform()
{
    // GetVersionEx reports the version that the program was built for.
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    std::string text = "Windows";
    if (const auto get = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(GetProcAddress(system, "RtlGetVersion")));
        get != nullptr && get(&version) == 0)
        text += " " + std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                std::to_string(version.dwBuildNumber);
    return text + ", x86_64";
}

std::string ProxySettings()
{
    WINHTTP_PROXY_INFO info = {};
    if (!WinHttpGetDefaultProxyConfiguration(&info) || info.lpszProxy == nullptr)
        return "none";
    const std::unique_ptr<wchar_t, GlobalDeleter> proxy(info.lpszProxy);
    const std::unique_ptr<wchar_t, GlobalDeleter> bypass(info.lpszProxyBypass);
    return ToNarrow(proxy.get()) + (bypass ? ", not for " + ToNarrow(bypass.get()) : "");
}

std::filesystem::path ConfigurationFolder()
{
    const auto folder = Environment("APPDATA");
    return folder ? std::filesystem::path(ToWide(*folder)) : std::filesystem::path();
}

bool InputIsTerminal()
{
    return IsConsole(STD_INPUT_HANDLE);
}

bool ErrorsAreTerminal()
{
    return IsConsole(STD_ERROR_HANDLE);
}

unsigned TerminalColumns()
{
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info))
        return 0;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

std::optional<std::string> AskSecretly(const std::string& prompt)
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    const HANDLE errors = GetStdHandle(STD_ERROR_HANDLE);
    const SilentConsole silent(input);
    DWORD count = 0;
    WriteFile(errors, prompt.data(), static_cast<DWORD>(prompt.size()), &count, nullptr);
    std::wstring line;
    wchar_t character = 0;
    while (ReadConsoleW(input, &character, 1, &count, nullptr) && count == 1 && character != L'\n')
        line.push_back(character);
    // Ctrl-Z at the start of a line is the end of the input.
    const bool ended = count == 1 && !line.starts_with(L'\x1A');
    if (!ended && line.starts_with(L'\x1A'))
        line.clear();
    WriteFile(errors, "\r\n", 2, &count, nullptr);
    if (!ended && line.empty())
        return std::nullopt;
    if (line.ends_with(L'\r'))
        line.pop_back();
    return ToNarrow(line);
}

std::optional<std::string> AsciiHost(const std::string& host)
{
    constexpr int kLongest = 256; // a name has up to 253 characters
    wchar_t ascii[kLongest] = {};
    // Without the rule that a name has letters, digits and hyphens only, which Wine applies before the conversion.
    const int length = IdnToAscii(0, ToWide(host).c_str(), -1, ascii, kLongest);
    const std::string name = ToNarrow(ascii);
    const bool isName = length > 0 && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-._") == std::string::npos;
    return isName ? std::optional(name) : std::nullopt;
}

std::optional<std::tm> LocalTime(std::int64_t unixSeconds)
{
    const auto moment = static_cast<std::time_t>(unixSeconds);
    std::tm local = {};
    return localtime_s(&local, &moment) == 0 ? std::optional(local) : std::nullopt;
}

std::filesystem::path ToPath(const std::wstring& text)
{
    return text;
}

std::wstring ToText(const std::filesystem::path& path)
{
    return path.native();
}

std::wstring LocalPath(const std::wstring& argument)
{
    // The system takes the prefix \??\ for a folder's name, unlike \\?\, which means the same.
    constexpr std::wstring_view native = L"\\??\\";
    const bool isNative = argument.starts_with(native);
    const std::wstring absolute = PathUtilities::MakeAbsolute(isNative ? L"\\\\?\\" + argument.substr(native.size()) : argument);
    if (absolute.starts_with(kDevices))
        return absolute;
    // A colon after the drive would name a stream of a file.
    const std::size_t drive = absolute.find(L":\\");
    if (const std::size_t colon = absolute.rfind(L':'); colon != std::wstring::npos && colon != drive)
        throw UsageError("'" + ToNarrow(argument) + "': a file's name has no ':' here");
    const std::wstring path = PathUtilities::NormalizePath(absolute);
    // The root of a drive, or any path that has to be a folder's.
    return absolute.ends_with(L'\\') ? path + L'\\' : path;
}

bool IsFileName(const std::wstring& name)
{
    // With the long-path prefix the system would accept names that other programs cannot open.
    constexpr std::wstring_view kForbidden = L"<>:\"/\\|?*";
    constexpr std::wstring_view kDeviceNames[] = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
    constexpr std::wstring_view kNumberedDevices[] = {L"COM", L"LPT"};
    const auto isForbidden = [=](wchar_t character) { return character < L' ' || kForbidden.find(character) != std::wstring_view::npos; };
    if (name.empty() || name.back() == L'.' || name.back() == L' ' || std::ranges::any_of(name, isForbidden))
        return false;
    constexpr std::wstring_view kDeviceDigits = L"123456789\u00B9\u00B2\u00B3";
    std::wstring_view stem = std::wstring_view(name).substr(0, name.find(L'.'));
    stem = stem.substr(0, stem.find_last_not_of(L' ') + 1);
    const auto isStem = [stem](std::wstring_view device) { return EqualIgnoringCase(stem, device); };
    const auto isNumbered = [=](std::wstring_view device) {
        return stem.size() == 4 && kDeviceDigits.find(stem.back()) != std::wstring_view::npos &&
               EqualIgnoringCase(stem.substr(0, 3), device);
    };
    return std::ranges::none_of(kDeviceNames, isStem) && std::ranges::none_of(kNumberedDevices, isNumbered);
}

std::string ShellWord(std::string_view text)
{
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./:=+\\";
    const std::string printable = Printable(text);
    if (!printable.empty() && printable.find_first_not_of(kPlain) == std::string::npos)
        return printable;
    // No quoting protects these in both cmd and PowerShell, which takes curved quotation marks for straight ones. With a "?" in their place
    // the advised command fails, but cannot run another one.
    constexpr std::wstring_view kUnsafe = L"\"%$`\u201C\u201D\u201E";
    std::wstring quoted = ToWide(printable);
    std::ranges::replace_if(
        quoted, [kUnsafe](wchar_t character) { return kUnsafe.find(character) != std::wstring_view::npos; }, L'?');
    // A backslash needs no escape except before the closing quote.
    const std::size_t backslashes = quoted.size() - (quoted.find_last_not_of(L'\\') + 1); // npos + 1 is 0
    return "\"" + ToNarrow(quoted) + std::string(backslashes, '\\') + "\"";
}

ResultCode ReadFileFacts(const std::wstring& path, FileFacts& facts)
{
    if (path.starts_with(kDevices))
        return Result::Success;
    // Not GetFileAttributesEx, which describes a link in place of the file that it leads to. A folder is opened with this flag only.
    const HANDLE file = CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    const Handle fileOwner(file);
    BY_HANDLE_FILE_INFORMATION data = {};
    if (!GetFileInformationByHandle(file, &data))
        return GetLastError();
    facts.isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    facts.isRegular = !facts.isFolder;
    facts.size = static_cast<std::int64_t>((static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
    facts.createdTicks = ToTicks(data.ftCreationTime);
    facts.modifiedTicks = ToTicks(data.ftLastWriteTime);
    facts.attributes = data.dwFileAttributes;
    return Result::Success;
}

ResultCode MakeSuccessor(const std::wstring& path, const std::wstring& other)
{
    const DWORD attributes = GetFileAttributesW(other.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0)
        return ERROR_ACCESS_DENIED;
    DWORD size = 0;
    GetFileSecurityW(other.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::vector<std::max_align_t> rights(size / sizeof(std::max_align_t) + 1);
    const bool hasRights = GetFileSecurityW(other.c_str(), DACL_SECURITY_INFORMATION, rights.data(), size, &size) != 0;
    SECURITY_ATTRIBUTES security = {sizeof(SECURITY_ATTRIBUTES), rights.data(), FALSE};
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, hasRights ? &security : nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return GetLastError();
    CloseHandle(file);
    return Result::Success;
}

ResultCode SetModifiedTime(const std::wstring& path, std::int64_t ticks)
{
    const Handle file(
        CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const FILETIME time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return file.get() != INVALID_HANDLE_VALUE && SetFileTime(file.get(), nullptr, nullptr, &time) ? Result::Success : GetLastError();
}

std::error_code WritePrivateFile(const std::filesystem::path& path, std::string_view content)
{
    const std::wstring target = LocalPath(path.native());
    const std::wstring temporary = target + L"." + std::to_wstring(GetCurrentProcessId()) + L".new";
    DeleteFileW(temporary.c_str()); // left by a terminated program with the same process id
    std::error_code error = WriteNewFile(temporary, content);
    if (!error && !MoveFileExW(temporary.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        error = LastError();
    if (error)
        DeleteFileW(temporary.c_str());
    return error;
}

ConsoleEncoding::ConsoleEncoding() : m_previous(GetConsoleOutputCP())
{
    SetConsoleOutputCP(CP_UTF8);
    // Pipes and files get the same bytes as on other platforms.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

ConsoleEncoding::~ConsoleEncoding()
{
    if (m_previous != 0)
        SetConsoleOutputCP(m_previous);
}

} // namespace System
