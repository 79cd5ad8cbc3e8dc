#pragma once

/// @file
/// The program from its arguments to its exit status.

#include <string>
#include <vector>

/// Runs one command.
/// @param arguments  UTF-8, without the program's name.
/// @return the exit status, one of `ExitStatus`.
[[nodiscard]] int RunProgram(const std::vector<std::string>& arguments);
