#pragma once

/// @file
/// Parses the program's arguments.

#include "Commands.h"
#include "ServerAddress.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The options of every command.
struct Options
{
    std::optional<ServerText> server;
    std::optional<int> port;
    std::optional<std::wstring> device;
    std::optional<std::string> token;
    std::string trace;    ///< empty for none.
    std::string timeline; ///< empty for none.
    bool json = false;
    bool quiet = false;
};

struct CommandLine
{
    Options options;
    Command::Any command;
};

/// The user asked for help or similar output instead of a command.
struct HelpRequest
{
    std::string text;
};

/// Looks up an environment variable.
using EnvironmentLookup = std::function<std::optional<std::string>(const std::string& name)>;

/// @param arguments  UTF-8, without the program's name.
/// @throws UsageError, HelpRequest
[[nodiscard]] CommandLine ParseCommandLine(std::vector<std::string> arguments, const EnvironmentLookup& environment);
