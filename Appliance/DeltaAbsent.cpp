#include "Delta.h"
#include "Exchange.h"

namespace ApplianceParts::Delta
{

namespace
{

ApiError Absent()
{
    return {501, ErrorId::Unsupported, "this build has no deltas"};
}

} // namespace

bool IsAvailable()
{
    return false;
}

void Make(const std::filesystem::path&, const std::filesystem::path&, const std::filesystem::path&)
{
    throw Absent();
}

void Apply(const std::filesystem::path&, const std::filesystem::path&, const std::filesystem::path&)
{
    throw Absent();
}

} // namespace ApplianceParts::Delta
