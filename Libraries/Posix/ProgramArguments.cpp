#include "ProgramArguments.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

std::vector<std::string> ProgramArguments(int count, const char* const* values)
{
    return {values + std::min(count, 1), values + count};
}

void ReserveStandardStreams()
{
    // In ascending order: each gets the lowest number that is free.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}
