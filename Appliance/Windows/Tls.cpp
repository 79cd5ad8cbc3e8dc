#include "HttpServer.h"

#include <stdexcept>

namespace ApplianceParts
{

ConnectionServer ServeTls(const Options&, RequestHandler, FaultChooser)
{
    throw std::runtime_error("--cert and --key cannot be used: this build has no TLS");
}

} // namespace ApplianceParts
