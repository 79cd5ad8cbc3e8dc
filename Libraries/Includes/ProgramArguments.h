#pragma once

/// @file
/// The arguments of a program's command line.

#include <string>
#include <vector>

/// Takes the parameters of `main`. On Windows they are a lossy copy, in the system's code page: there this reads the original.
/// @return the arguments in UTF-8, without the program's name.
[[nodiscard]] std::vector<std::string> ProgramArguments(int count, const char* const* values);
