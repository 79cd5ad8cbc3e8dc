#include "Slow/PeakMemory.h"

#include <fstream>
#include <string>

std::uint64_t PeakMemory()
{
    // Not getrusage, which counts what the process was before it became this program.
    std::ifstream status("/proc/self/status");
    std::uint64_t kibibytes = 0;
    for (std::string word; status >> word && word != "VmHWM:";)
        continue;
    status >> kibibytes;
    return kibibytes * 1024;
}
