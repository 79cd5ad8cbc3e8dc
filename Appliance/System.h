#pragma once

/// @file
/// The few things that the appliance does differently from system to system: sockets, files that are read while others replace
/// them, and which names files can have.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

namespace ApplianceParts::System
{

/// A socket, as wide as any system's.
using Socket = std::intptr_t;

/// Readies a socket to listen: its port is at once free again when the program ends, and never shared meanwhile.
void PrepareListener(Socket socket);

/// Waits until there is something to read: data, or the connection's end.
[[nodiscard]] bool WaitReadable(Socket socket, std::chrono::milliseconds timeout);

/// Reads what is there, waiting for the first byte; 0 at the end, negative on a failure.
[[nodiscard]] std::ptrdiff_t Receive(Socket socket, char* buffer, std::size_t size);
[[nodiscard]] std::ptrdiff_t Send(Socket socket, const char* data, std::size_t size);

/// Ends the connection in both directions: a thread blocked in `Receive` or `Send` returns.
void ShutDown(Socket socket);
void Close(Socket socket);

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

} // namespace ApplianceParts::System
