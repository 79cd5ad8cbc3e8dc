#pragma once

/// @file
/// What the program needs from the operating system beyond the library's platform calls. `Posix/` and `Windows/` each have their version;
/// the rest of the program is independent of the platform. Narrow text is UTF-8.

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

namespace System
{

[[nodiscard]] std::optional<std::string> Environment(const std::string& name);

/// The machine's name; empty if the system does not provide it.
[[nodiscard]] std::wstring MachineName();

/// The file of the program or library that contains a function; empty if unknown.
[[nodiscard]] std::string FileOf(const void* function);

/// The system's name, version and processor.
[[nodiscard]] std::string Platform();

/// Where requests find their proxy, without credentials; "none" if none is set.
[[nodiscard]] std::string ProxySettings();

/// The folder of the user's settings; empty if unknown.
[[nodiscard]] std::filesystem::path ConfigurationFolder();

[[nodiscard]] bool InputIsTerminal();
[[nodiscard]] bool ErrorsAreTerminal();

/// The width of the terminal behind standard error; 0 where there is none.
[[nodiscard]] unsigned TerminalColumns();

/// Asks on the terminal for a line, without echo. Standard input must be a terminal.
/// @return nothing at the end of the input.
[[nodiscard]] std::optional<std::string> AskSecretly(const std::string& prompt);

/// A host name with other than ASCII letters in the form that the system's HTTP library takes: on Windows in Punycode (RFC 3492).
/// @return nothing for a text that is no name.
[[nodiscard]] std::optional<std::string> AsciiHost(const std::string& host);

/// The user's local time; nothing for a moment that the system cannot convert.
[[nodiscard]] std::optional<std::tm> LocalTime(std::int64_t unixSeconds);

/// A path from text, and back. The standard library's own conversion depends on the locale.
[[nodiscard]] std::filesystem::path ToPath(const std::wstring& text);
[[nodiscard]] std::wstring ToText(const std::filesystem::path& path);

/// A local path for the library's file operations: on Windows absolute, in the form that may exceed 260 characters. A device, such as
/// `nul`, keeps its name.
/// @throws UsageError for a path that names no file of its own, such as one with a `:` inside on Windows.
[[nodiscard]] std::wstring LocalPath(const std::wstring& argument);

/// Whether a local file can have this name.
[[nodiscard]] bool IsFileName(const std::wstring& name);

/// An argument that can be pasted into the system's shell, in one line.
[[nodiscard]] std::string ShellWord(std::string_view text);

/// The facts about a local file that an upload sends.
struct FileFacts
{
    bool isFolder = false;
    bool isRegular = false; ///< not a folder, pipe, socket or device.
    std::int64_t size = 0;
    std::int64_t createdTicks = 0; ///< like `CAttributeTime`.
    std::int64_t modifiedTicks = 0;
    std::uint32_t attributes = 0; ///< Windows file-attribute bits.
};

/// @return 0, or the platform's error.
[[nodiscard]] ResultCode ReadFileFacts(const std::wstring& path, FileFacts& facts);

/// Creates an empty file that will replace another one, with the other's access rights if it exists.
/// @return 0, or the platform's error: ERROR_FILE_EXISTS if the file exists, `Result::AccessDenied` if the other may not be written.
[[nodiscard]] ResultCode MakeSuccessor(const std::wstring& path, const std::wstring& other);

/// @param ticks  like `CAttributeTime`.
/// @return 0, or the platform's error.
[[nodiscard]] ResultCode SetModifiedTime(const std::wstring& path, std::int64_t ticks);

/// Writes a file that only its user can read, from its creation on; replaces an existing one atomically.
[[nodiscard]] std::error_code WritePrivateFile(const std::filesystem::path& path, std::string_view content);

/// Makes the standard streams carry plain UTF-8 for its lifetime.
class ConsoleEncoding
{
public:
    ConsoleEncoding();
    ~ConsoleEncoding();

    ConsoleEncoding(const ConsoleEncoding&) = delete;
    ConsoleEncoding& operator=(const ConsoleEncoding&) = delete;

private:
    [[maybe_unused]] unsigned m_previous = 0; // unused on systems that need not restore a code page
};

/// Receives the user's Ctrl-C for its lifetime, and what else asks the program to end.
class InterruptWatch
{
public:
    virtual ~InterruptWatch() = default;
};

/// @param interrupted  called once, on a separate thread, at the first Ctrl-C; a second one ends the program. The watch's destructor waits
/// for the call.
/// @throws std::system_error
[[nodiscard]] std::unique_ptr<InterruptWatch> WatchInterrupts(std::function<void()> interrupted);

} // namespace System
