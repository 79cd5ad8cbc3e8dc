#include "Routes.h"

namespace ApplianceParts
{

Reply ExchangeDelta(const Call&)
{
    throw ApiError(501, ErrorId::Unsupported, "this build has no deltas");
}

} // namespace ApplianceParts
