#include "Channel.h"

#include <stdexcept>

namespace ApplianceParts
{

TlsAcceptor LoadTls(const std::filesystem::path&, const std::filesystem::path&)
{
    throw std::runtime_error("--cert and --key cannot be used: this build has no TLS");
}

} // namespace ApplianceParts
