#pragma once

/// @file
/// The common part of every platform call: its error value becomes the last error, and no exception leaves it.

#include "Win32.h"

#include <new>
#include <type_traits>

namespace Quendra::Platform
{

/// Runs the call and returns its error value; std::bad_alloc becomes ERROR_NOT_ENOUGH_MEMORY, another exception the
/// fallback.
template <typename Call> DWORD ErrorOf(Call&& call, DWORD fallback = ERROR_GEN_FAILURE) noexcept
{
    static_assert(std::is_same_v<decltype(call()), DWORD>, "a call returns its error value");
    try
    {
        return call();
    }
    catch (const std::bad_alloc&)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    catch (...)
    {
        return fallback;
    }
}

/// Runs the call, makes its error value the last error (0 on success) and returns whether it succeeded.
template <typename Call> BOOL SucceedsAsCall(Call&& call, DWORD fallback = ERROR_GEN_FAILURE) noexcept
{
    const DWORD error = ErrorOf(call, fallback);
    SetLastError(error);
    return error == ERROR_SUCCESS ? TRUE : FALSE;
}

} // namespace Quendra::Platform
