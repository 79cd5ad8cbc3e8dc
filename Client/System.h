#pragma once

/// @file
/// What the program asks of the operating system beyond the library's own platform calls. `Posix/` and `Windows/` each have their
/// version; nothing else in the program knows which one it runs on. Narrow text is UTF-8.

#include "QuendraHttp/ResultCodes.h"

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace System
{

/// The program's arguments without its own name. Windows hands `main` a lossy copy; this reads the original.
[[nodiscard]] std::vector<std::string> Arguments(int count, const char* const* values);

[[nodiscard]] std::optional<std::string> Environment(const std::string& name);

/// The machine's name; empty where the system does not tell.
[[nodiscard]] std::wstring MachineName();

/// The file of the program or library that has a function; empty where the system does not tell.
[[nodiscard]] std::string FileOf(const void* function);

/// Where the user's programs keep their settings; empty where the system does not tell.
[[nodiscard]] std::filesystem::path ConfigurationFolder();

[[nodiscard]] bool InputIsTerminal();
[[nodiscard]] bool ErrorsAreTerminal();

/// The width of the terminal behind standard error; 0 where there is none.
[[nodiscard]] unsigned TerminalColumns();

/// Asks on the terminal for a line that is not shown while it is typed. Needs standard input to be a terminal.
/// @return nothing at the end of the input.
[[nodiscard]] std::optional<std::string> AskSecretly(const std::string& prompt);

/// The user's local time; nothing for a moment that the system cannot convert.
[[nodiscard]] std::optional<std::tm> LocalTime(std::int64_t unixSeconds);

/// A path from text, and back. The standard library's own conversion depends on the locale.
[[nodiscard]] std::filesystem::path ToPath(const std::wstring& text);
[[nodiscard]] std::wstring ToText(const std::filesystem::path& path);

/// A local path as the library's file operations take it: on Windows absolute, in the form that may be longer than 260 characters.
/// A device, such as `nul`, keeps its name.
/// @throws UsageError for what names no file of its own, as with a `:` within on Windows.
[[nodiscard]] std::wstring LocalPath(const std::wstring& argument);

/// Whether a name can be a file's in a local folder.
[[nodiscard]] bool IsFileName(const std::wstring& name);

/// An argument as one can paste it into the system's shell, and in one line.
[[nodiscard]] std::string ShellWord(std::string_view text);

/// What an upload tells of a local file.
struct FileFacts
{
    bool isFolder = false;
    bool isRegular = false; ///< neither a folder nor a pipe, a socket or a device.
    std::int64_t size = 0;
    std::int64_t createdTicks = 0; ///< like `CAttributeTime`.
    std::int64_t modifiedTicks = 0;
    std::uint32_t attributes = 0; ///< Windows file-attribute bits.
};

/// @return 0, or the platform's error.
[[nodiscard]] ResultCode ReadFileFacts(const std::wstring& path, FileFacts& facts);

/// Makes an empty file that will take another one's place: with its access rights, where it exists.
/// @return 0, or the platform's error: `Result::FileExists` where there is one, `Result::AccessDenied` where the other may not be
///         written.
[[nodiscard]] ResultCode MakeSuccessor(const std::wstring& path, const std::wstring& other);

/// @param ticks  like `CAttributeTime`.
/// @return 0, or the platform's error.
[[nodiscard]] ResultCode SetModifiedTime(const std::wstring& path, std::int64_t ticks);

/// Writes a file that only its user can read, from the moment it is there; replaces an older one as a whole.
[[nodiscard]] std::error_code WritePrivateFile(const std::filesystem::path& path, std::string_view content);

/// Makes standard streams carry plain UTF-8 while it lives.
class ConsoleEncoding
{
public:
    ConsoleEncoding();
    ~ConsoleEncoding();

    ConsoleEncoding(const ConsoleEncoding&) = delete;
    ConsoleEncoding& operator=(const ConsoleEncoding&) = delete;

private:
    [[maybe_unused]] unsigned m_previous = 0; // not every system has one to go back to
};

/// Takes the user's Ctrl-C while it lives.
class InterruptWatch
{
public:
    virtual ~InterruptWatch() = default;
};

/// @param interrupted  called once, on a thread of its own, at the first Ctrl-C; a second one ends the program. The watch's end
///                     waits for it.
/// @throws std::system_error
[[nodiscard]] std::unique_ptr<InterruptWatch> WatchInterrupts(std::function<void()> interrupted);

} // namespace System
