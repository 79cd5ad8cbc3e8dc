#pragma once

#include "Win32.h"

#include <cerrno>

namespace Quendra::Platform
{

/// The Win32 error value for an `errno` of a call for files.
[[nodiscard]] inline DWORD Win32Error(int error) noexcept
{
    switch (error)
    {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case EBADF: // a read from a file opened for writing only, or the reverse; the descriptor itself is always valid
        return ERROR_ACCESS_DENIED;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case ETXTBSY:
    case EWOULDBLOCK: // another process holds a lease or a lock
        return ERROR_SHARING_VIOLATION;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case ENXIO: // a socket, a pipe without a reader, a device without a driver
    case ENODEV:
        return ERROR_NOT_SUPPORTED;
    case EINVAL:
    case EOVERFLOW:
        return ERROR_INVALID_PARAMETER;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ERROR_DISK_FULL;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case ELOOP:
        return ERROR_INVALID_NAME;
    default:
        return ERROR_GEN_FAILURE;
    }
}

} // namespace Quendra::Platform
