#pragma once

/// @file
/// What the programs do first.

#include <string>
#include <vector>

/// Takes the parameters of `main`. On Windows they are a lossy copy, in the system's code page: there this reads the original.
/// @return the arguments in UTF-8, without the program's name.
[[nodiscard]] std::vector<std::string> ProgramArguments(int count, const char* const* values);

/// Opens the standard streams that the program was started without, so that no file or connection gets their descriptors. Reading from them
/// and writing to them still fails.
void ReserveStandardStreams();
