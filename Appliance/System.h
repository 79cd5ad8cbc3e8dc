#pragma once

/// @file
/// What the appliance does differently from system to system: waiting for sockets, files that are read while others replace them,
/// which names files can have, arguments and the way in which a program is asked to end.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ApplianceParts::System
{

/// A socket, as wide as any system's.
using Socket = std::intptr_t;

/// Readies a socket to listen: its port is at once free again when the program ends, and never shared meanwhile.
void PrepareListener(Socket socket);

enum class Wait
{
    Readable, ///< data, a connection to accept, or the connection's end
    Writable
};

/// @returns whether it came to that in time.
[[nodiscard]] bool WaitFor(Socket socket, Wait wait, std::chrono::milliseconds time);

/// A file that is read. Meanwhile others may give its name to another file, or remove it; it stays what it is.
class IFile
{
public:
    virtual ~IFile() = default;

    /// @returns how much was read: less than asked for at the file's end, negative on a failure.
    [[nodiscard]] virtual std::ptrdiff_t ReadAt(std::uint64_t offset, char* buffer, std::size_t size) = 0;
};

/// @throws std::system_error where the file cannot be opened.
[[nodiscard]] std::shared_ptr<IFile> OpenFile(const std::filesystem::path& path);

/// Renames a file, over another one where there is one: even while that is read.
/// @param aside  a free name on the same file system, for where that takes a detour.
/// @throws std::system_error where it cannot be done; all is then as before.
void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path& aside);

/// Whether a file can have this name here and the name means itself and nothing else. "." and ".." are the caller's to refuse.
[[nodiscard]] bool IsFileName(std::u8string_view name);

/// The program's arguments in UTF-8, without its name.
[[nodiscard]] std::vector<std::string> Arguments(int count, char** arguments);

/// From now on a request to end the program (Ctrl-C, SIGINT, SIGTERM) is kept for `WaitForEnd`. Called before any thread is made.
void PrepareEnd();
void WaitForEnd();

} // namespace ApplianceParts::System
