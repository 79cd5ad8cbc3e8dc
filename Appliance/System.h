#pragma once

/// @file
/// The calls that differ by operating system: waiting for sockets, files that are read while others replace them, valid file names.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace ApplianceParts::System
{

/// A socket, in a type that fits every system.
using NativeSocket = std::intptr_t;

/// Prepares a socket to listen: its port is free at once when the program ends, and cannot be shared meanwhile.
void PrepareListener(NativeSocket socket);

enum class Wait
{
    Readable, ///< data, a connection to accept, or the connection's end
    Writable,
    Ended ///< the peer has closed the connection, or it broke. Not seen behind unread data on every system.
};

/// @return whether the socket became ready in time.
[[nodiscard]] bool WaitFor(NativeSocket socket, Wait wait, std::chrono::milliseconds time);

/// Opens a file for reading in binary mode. It may be replaced or removed meanwhile; its content stays the same.
/// @param offset  where reading starts, in bytes.
/// @throws std::system_error if the file cannot be opened.
[[nodiscard]] std::shared_ptr<std::FILE> OpenFile(const std::filesystem::path& path, std::uint64_t offset = 0);

/// Renames a file, and replaces an existing one even while that is read.
/// @param aside  an unused name on the same file system, for systems that need an intermediate step.
/// @throws std::system_error on failure; nothing has changed then.
void Replace(const std::filesystem::path& from, const std::filesystem::path& to, const std::filesystem::path& aside);

/// Whether a file can have exactly this name on this system. The caller must refuse "." and "..".
[[nodiscard]] bool IsFileName(const std::filesystem::path& name);

} // namespace ApplianceParts::System
