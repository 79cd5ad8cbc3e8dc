#pragma once

#include "Platform/Platform.h"

/// Owns one open file.
class FileHandle
{
public:
    explicit FileHandle(HANDLE file) noexcept : m_file(file) {}
    ~FileHandle()
    {
        if (IsOpen())
            CloseHandle(m_file);
    }

    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    [[nodiscard]] bool IsOpen() const noexcept { return m_file != INVALID_HANDLE_VALUE; }
    [[nodiscard]] HANDLE Get() const noexcept { return m_file; }

    /// Moves to a position from the beginning.
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
