#include "Delta.h"

namespace ApplianceParts::Delta
{

bool IsAvailable()
{
    return false;
}

// Never called in a build without deltas.
void Make(const std::filesystem::path&, std::FILE&, const std::filesystem::path&)
{
}

void Apply(std::FILE&, const std::filesystem::path&, const std::filesystem::path&)
{
}

} // namespace ApplianceParts::Delta
