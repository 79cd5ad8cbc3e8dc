#include "PeakMemory.h"

#include <sys/resource.h>

std::uint64_t PeakMemory()
{
    rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}
