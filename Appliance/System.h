#pragma once

/// @file
/// The platform-dependent parts of the appliance: waiting for sockets, files that are read while others replace them, valid file names,
/// arguments and the request to end the program.

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

/// A socket, in a type that fits every system.
using Socket = std::intptr_t;

/// Prepares a socket to listen: its port is free at once when the program ends, and cannot be shared meanwhile.
void PrepareListener(Socket socket);

enum class Wait
{
    Readable, ///< data, a connection to accept, or the connection's end
    Writable
};

/// @returns whether the socket became ready in time.
[[nodiscard]] bool WaitFor(Socket socket, Wait wait, std::chrono::milliseconds time);

/// A file open for reading. It may be replaced or removed meanwhile; its content stays the same.
class IFile
{
public:
    virtual ~IFile() = default;

    /// @returns how much was read: less than asked for at the file's end, negative on a failure.
    [[nodiscard]] virtual std::ptrdiff_t ReadAt(std::uint64_t offset, char* buffer, std::size_t size) = 0;
};

/// @throws std::system_error if the file cannot be opened.
[[nodiscard]] std::shared_ptr<IFile> OpenFile(const std::filesystem::path& path);

/// Renames a file, and replaces an existing one even while that is read.
/// @param aside  an unused name on the same file system, for systems that need an intermediate step.
/// @throws std::system_error on failure; nothing has changed then.
void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path& aside);

/// Whether a file can have exactly this name on this system. The caller must refuse "." and "..".
[[nodiscard]] bool IsFileName(std::u8string_view name);

/// The program's arguments in UTF-8, without its name.
[[nodiscard]] std::vector<std::string> Arguments(int count, char** arguments);

/// Keeps later requests to end the program (Ctrl-C, SIGINT, SIGTERM) for `WaitForEnd`. Must be called before any thread is created.
void PrepareEnd();
void WaitForEnd();

} // namespace ApplianceParts::System
