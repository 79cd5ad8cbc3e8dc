#pragma once

/// @file
/// What the appliance is started with.

#include <filesystem>
#include <string>
#include <vector>

namespace ApplianceParts
{

enum class ServerMode
{
    Legacy,
    DeviceToken
};

struct Options
{
    std::filesystem::path root;
    int port = 0; ///< 0: any free one.
    std::string user = "demo";
    std::string password = "demo";
    std::filesystem::path certificate; ///< PEM; empty: no TLS.
    std::filesystem::path privateKey;
    ServerMode mode = ServerMode::Legacy;
    bool logsRequests = false;
    std::size_t mostConnections = 500; ///< at once; each takes a thread, a socket and perhaps a file.
    std::vector<std::string> apiVersions = {"1.0", "1.1", "1.2", "1.3"};
};

} // namespace ApplianceParts
