#pragma once

/// @file
/// The appliance's options and their command line.

#include "Faults.h"

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace ApplianceParts
{

struct Options
{
    std::filesystem::path root;
    int port = 0; ///< 0: any free one.
    std::string user = "demo";
    std::string password = "demo";
    std::filesystem::path certificate; ///< PEM; empty: no TLS.
    std::filesystem::path privateKey;
    bool needsDeviceToken = false; ///< to log in.
    bool logsRequests = false;
    std::optional<FaultPlan> faults = {};
    std::uint64_t faultSeed = 1;
    std::vector<std::string> apiVersions = {"1.0", "1.1", "1.2", "1.3"};
};

/// Parses the command line. Nothing if it asks for help or is wrong; `exitStatus` then says which.
/// @param arguments  in UTF-8, without the program's name.
[[nodiscard]] std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, std::ostream& output, std::ostream& errors,
                                                      int& exitStatus);

} // namespace ApplianceParts
