#pragma once

#include "Platform/Platform.h"
#include "QuendraHttp/Types.h"

/// Tests a caller's cancel event without waiting. Returns false for a null pointer or a null event.
[[nodiscard]] inline bool IsSignalled(const CancelEvent* cancelEvent) noexcept
{
    return cancelEvent != nullptr && cancelEvent->event != nullptr && WaitForSingleObject(cancelEvent->event, 0) == WAIT_OBJECT_0;
}
