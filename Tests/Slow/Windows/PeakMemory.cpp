#include "Slow/PeakMemory.h"

#include "Platform/Platform.h"

#include <psapi.h>

std::uint64_t PeakMemory()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof counters;
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != FALSE ? counters.PeakWorkingSetSize : 0;
}
