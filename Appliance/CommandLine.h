#pragma once

/// @file
/// The appliance's command line.

#include "Options.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace ApplianceParts
{

/// What the command line asks for; nothing where it asked for help or was wrong, `exitStatus` then says which.
/// @param arguments  in UTF-8, without the program's name.
[[nodiscard]] std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, std::ostream& output, std::ostream& errors,
                                                      int& exitStatus);

} // namespace ApplianceParts
