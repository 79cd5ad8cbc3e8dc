#pragma once

/// @file
/// The shell's completion of the program's commands.

#include <string>
#include <vector>

/// A command's name and its own options; without a name, the options that every command takes.
struct CommandWords
{
    std::string command;
    std::vector<std::string> options;
};

/// A script for bash that completes commands, options, local files and, for words that begin with a slash, the server's items.
[[nodiscard]] std::string BashCompletion(const std::vector<CommandWords>& commands);
