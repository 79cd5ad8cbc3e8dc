#include "PlatformSteps.h"

#include "Platform/Platform.h"

constinit thread_local PlatformSteps* t_steps = nullptr;

bool IsToFail(const char* call) noexcept
{
    PlatformSteps* const steps = t_steps;
    if (steps == nullptr)
        return false;
    const Uncounted pause;
    steps->taken.push_back(call);
    if (steps->taken.size() != steps->failing)
        return false;
    SetLastError(kPlatformError);
    return true;
}
