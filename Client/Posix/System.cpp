#include "System.h"

#include "TerminalText.h"
#include "TextConversion.h"
#include "TimeText.h"

#include "Platform/Platform.h"
#include "Platform/Posix/SystemErrors.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <termios.h>
#include <unistd.h>

namespace System
{
namespace
{

std::error_code LastError()
{
    return {errno, std::generic_category()};
}

class Descriptor
{
public:
    explicit Descriptor(int value) : m_value(value) {}
    ~Descriptor()
    {
        if (m_value >= 0)
            close(m_value);
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int Get() const { return m_value; }

private:
    int m_value;
};

// Switches echoing off. A signal that ends the program interrupts the read first, so that echoing is switched on again.
class SilentTerminal
{
public:
    SilentTerminal()
    {
        s_signal = 0;
        struct sigaction action = {};
        action.sa_handler = [](int signal) { s_signal = signal; };
        for (std::size_t index = 0; index < std::size(kSignals); ++index)
            sigaction(kSignals[index], &action, &m_previousActions[index]);
        tcgetattr(STDIN_FILENO, &m_previous);
        termios silent = m_previous;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }

    ~SilentTerminal()
    {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_previous);
        for (std::size_t index = 0; index < std::size(kSignals); ++index)
            sigaction(kSignals[index], &m_previousActions[index], nullptr);
    }

    // The signal that has come, or 0.
    [[nodiscard]] static int Signal() { return s_signal; }

    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    static constexpr int kSignals[] = {SIGINT, SIGHUP, SIGTERM, SIGQUIT};
    inline static volatile std::sig_atomic_t s_signal = 0;
    termios m_previous = {};
    struct sigaction m_previousActions[std::size(kSignals)] = {};
};

std::int64_t ToTicks(std::int64_t seconds, std::int64_t nanoseconds)
{
    return (seconds + kUnixEpochSeconds) * kTicksPerSecond + nanoseconds / 100;
}

bool WriteAll(int file, std::string_view content)
{
    while (!content.empty())
    {
        const ssize_t written = write(file, content.data(), content.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        content.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// `\x1B`
std::string HexadecimalEscape(char character)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    return {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
}

bool PrintToTerminal(std::string_view text)
{
    return WriteAll(STDERR_FILENO, text);
}

} // namespace

std::optional<std::string> Environment(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::wstring MachineName()
{
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return {};
    return ToWide(name);
}

std::string FileOf(const void* function)
{
    Dl_info info = {};
    return dladdr(function, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

std::string Platform()
{
    utsname name = {};
    return uname(&name) == 0 ? std::string(name.sysname) + " " + name.release + ", " + name.machine : "unknown";
}

std::string ProxySettings()
{
    std::string settings;
    // HTTP_PROXY in capitals is ignored: a CGI program's client could set it.
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
    {
        const std::string value = Environment(name).value_or("");
        if (value.empty())
            continue;
        const std::size_t scheme = value.find("://");
        const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
        const std::size_t at = value.find_last_of('@');
        settings += (settings.empty() ? "" : ", ") + std::string(name) + "=" + value.substr(0, start) +
                    value.substr(at == std::string::npos ? start : at + 1);
    }
    return settings.empty() ? "none" : settings;
}

std::filesystem::path ConfigurationFolder()
{
    // A relative path in the variable is ignored.
    if (const auto folder = Environment("XDG_CONFIG_HOME"); folder && folder->starts_with('/'))
        return *folder;
    if (const auto home = Environment("HOME"); home && !home->empty())
        return std::filesystem::path(*home) / ".config";
    return {};
}

bool InputIsTerminal()
{
    return isatty(STDIN_FILENO) != 0;
}

bool ErrorsAreTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

unsigned TerminalColumns()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::optional<std::string> AskSecretly(const std::string& prompt)
{
    std::string line;
    ssize_t count = 0;
    int error = 0;
    {
        const SilentTerminal silent;
        PrintToTerminal(prompt);
        char character = 0;
        while ((count = read(STDIN_FILENO, &character, 1)) == 1 && character != '\n')
            line.push_back(character);
        error = errno;
    }
    if (count < 0 && error == EINTR && SilentTerminal::Signal() != 0)
    {
        PrintToTerminal("\n");
        std::raise(SilentTerminal::Signal());
    }
    return count == 1 || !line.empty() ? std::optional(line) : std::nullopt;
}

std::optional<std::string> AsciiHost(const std::string& host)
{
    return host; // libcurl converts it
}

std::optional<std::tm> LocalTime(std::int64_t unixSeconds)
{
    const auto moment = static_cast<std::time_t>(unixSeconds);
    std::tm local = {};
    return localtime_r(&moment, &local) != nullptr ? std::optional(local) : std::nullopt;
}

std::filesystem::path ToPath(const std::wstring& text)
{
    return ToNarrow(text);
}

std::wstring ToText(const std::filesystem::path& path)
{
    return ToWide(path.native());
}

std::wstring LocalPath(const std::wstring& argument)
{
    return argument;
}

bool IsFileName(const std::wstring& name)
{
    return !name.empty() && name != L"." && name != L".." && name.find_first_of(std::wstring(L"/\0", 2)) == std::wstring::npos;
}

std::string ShellWord(std::string_view text)
{
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./:=+,@%";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos)
        return std::string(text);
    const bool isPrintable = Printable(text) == text;
    std::string quoted;
    for (const char character : text)
    {
        if (character == '\'')
            quoted += isPrintable ? "'\\''" : "\\'";
        else if (!isPrintable && (character == '\\' || character < ' ' || character > '~'))
            quoted += HexadecimalEscape(character);
        else
            quoted += character;
    }
    // Control characters need the shell's $'...' quoting.
    return isPrintable ? "'" + quoted + "'" : "$'" + quoted + "'";
}

ResultCode ReadFileFacts(const std::wstring& path, FileFacts& facts)
{
    struct statx found = {};
    if (statx(AT_FDCWD, ToNarrow(path).c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &found) != 0)
        return Win32Error(errno);
    facts.isFolder = S_ISDIR(found.stx_mode);
    facts.isRegular = S_ISREG(found.stx_mode);
    facts.size = static_cast<std::int64_t>(found.stx_size);
    facts.modifiedTicks = ToTicks(found.stx_mtime.tv_sec, found.stx_mtime.tv_nsec);
    // Not every file system stores the creation time.
    const bool knowsBirth = (found.stx_mask & STATX_BTIME) != 0;
    facts.createdTicks = knowsBirth ? ToTicks(found.stx_btime.tv_sec, found.stx_btime.tv_nsec) : facts.modifiedTicks;
    facts.attributes = facts.isFolder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    return Result::Success;
}

ResultCode MakeSuccessor(const std::wstring& path, const std::wstring& other)
{
    mode_t rights = 0666; // without the bits of the user's umask
    std::optional<mode_t> given;
    if (const Descriptor existing(open(ToNarrow(other).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)); existing.Get() >= 0)
    {
        struct stat facts = {};
        if (fstat(existing.Get(), &facts) != 0)
            return Win32Error(errno);
        given = rights = facts.st_mode & 0777;
    }
    else if (errno != ENOENT)
    {
        return Win32Error(errno);
    }
    const Descriptor file(open(ToNarrow(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, rights));
    if (file.Get() < 0)
        return errno == ENOENT ? ERROR_PATH_NOT_FOUND : Win32Error(errno);
    return given && fchmod(file.Get(), *given) != 0 ? Win32Error(errno) : Result::Success;
}

ResultCode SetModifiedTime(const std::wstring& path, std::int64_t ticks)
{
    const std::int64_t seconds = ticks / kTicksPerSecond - kUnixEpochSeconds;
    const timespec times[] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), static_cast<long>(ticks % kTicksPerSecond * 100)}};
    return utimensat(AT_FDCWD, ToNarrow(path).c_str(), times, 0) == 0 ? Result::Success : Win32Error(errno);
}

std::error_code WritePrivateFile(const std::filesystem::path& path, std::string_view content)
{
    std::string temporary = path.native() + ".XXXXXX";
    const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC)); // readable by its user only
    if (file.Get() < 0)
        return LastError();
    if (WriteAll(file.Get(), content) && fsync(file.Get()) == 0 && rename(temporary.c_str(), path.c_str()) == 0)
        return {};
    const std::error_code error = LastError();
    unlink(temporary.c_str());
    return error;
}

ConsoleEncoding::ConsoleEncoding() = default;
ConsoleEncoding::~ConsoleEncoding() = default;

} // namespace System
