#include "Session.h"

#include <cstdlib>

namespace Quendra::Platform
{
CertificatePlaces CertificatePlaces::FromEnvironment()
{
    const auto read = [](const char* name) {
        const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing here writes the environment
        return std::string(value != nullptr ? value : "");
    };
    return {read("SSL_CERT_FILE"), read("SSL_CERT_DIR")};
}
} // namespace Quendra::Platform
