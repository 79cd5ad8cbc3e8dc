#pragma once

#include "Platform/Platform.h"

#include <cstdint>
#include <optional>
#include <string>

/// A caller's local path as the platform opens it, however long it is. On Windows
///
/// | path                                    | is opened as              |
/// |-----------------------------------------|---------------------------|
/// | `\\?\...`                               | it is                     |
/// | `\??\...`                               | `\\?\...`                 |
/// | `\\.\...`                               | it is: a device           |
/// | any other whose absolute form is short  | it is                     |
/// | ... reaches the classic limit           | `\\?\` and that form      |
[[nodiscard]] std::wstring OpenablePath(const std::wstring& path);

/// Lets other programs write, move and delete the file while it is open.
inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// Owns one open file handle.
class FileHandle
{
public:
    /// Opens a file on a disk. A device can only be opened for writing: it has no size, and a read may block forever. The last
    /// error is ERROR_INVALID_NAME for a path with a NUL, ERROR_NOT_SUPPORTED for a pipe, or for reading a device, else the platform's.
    /// @param path         local path, however long.
    /// @param access       GENERIC_READ or GENERIC_WRITE.
    /// @param sharing      FILE_SHARE_ values, or 0.
    /// @param disposition  OPEN_EXISTING or CREATE_ALWAYS.
    FileHandle(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition);
    ~FileHandle()
    {
        if (IsOpen())
            CloseHandle(m_file);
    }

    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    [[nodiscard]] bool IsOpen() const noexcept { return m_file != INVALID_HANDLE_VALUE; }
    [[nodiscard]] HANDLE Get() const noexcept { return m_file; }

    /// The file's size in bytes; nothing, with the last error set, on failure.
    [[nodiscard]] std::optional<std::int64_t> Size() const noexcept
    {
        LARGE_INTEGER size{};
        return GetFileSizeEx(m_file, &size) != FALSE ? std::optional<std::int64_t>(size.QuadPart) : std::nullopt;
    }

    /// Sets the file position, in bytes from the beginning.
    /// @return false with the last error set on failure.
    [[nodiscard]] bool MoveTo(std::int64_t position) const noexcept
    {
        LARGE_INTEGER distance{};
        distance.QuadPart = position;
        return SetFilePointerEx(m_file, distance, nullptr, FILE_BEGIN) != FALSE;
    }

private:
    HANDLE m_file;
};
