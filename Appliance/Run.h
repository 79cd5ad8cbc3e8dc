#pragma once

/// @file
/// The program, between the platform's entry point and its way of asking a program to end.

#include <functional>
#include <string>
#include <vector>

namespace ApplianceParts
{

/// Serves until it is asked to end.
/// @param arguments   in UTF-8, without the program's name.
/// @param waitForEnd  returns when the program is asked to end.
/// @returns the exit status.
int Run(std::vector<std::string> arguments, const std::function<void()>& waitForEnd);

} // namespace ApplianceParts
