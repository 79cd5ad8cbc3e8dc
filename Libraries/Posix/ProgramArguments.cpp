#include "ProgramArguments.h"

#include <algorithm>

std::vector<std::string> ProgramArguments(int count, const char* const* values)
{
    return {values + std::min(count, 1), values + count};
}
