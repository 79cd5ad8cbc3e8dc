#include "Eventing/SystemTracing.h"

#include <unistd.h>

namespace Eventing
{

bool IsSystemEventEnabled(ProviderHandle, const EventDescriptor&) noexcept
{
    return false;
}

void WriteSystemEvent(ProviderHandle, const Event&) noexcept
{
}

std::uint32_t CurrentThreadId() noexcept
{
    return static_cast<std::uint32_t>(gettid());
}

std::uint32_t CurrentProcessId() noexcept
{
    return static_cast<std::uint32_t>(getpid());
}

} // namespace Eventing
