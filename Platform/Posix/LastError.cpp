#include "Win32.h"

namespace Quendra::Platform
{

namespace
{

thread_local DWORD lastError = ERROR_SUCCESS;

} // namespace

DWORD GetLastError() noexcept
{
    return lastError;
}

void SetLastError(DWORD error) noexcept
{
    lastError = error;
}

} // namespace Quendra::Platform
