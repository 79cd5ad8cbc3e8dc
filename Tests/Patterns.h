#pragma once

/// @file
/// Regular expressions, compiled in one source alone: <regex> takes seconds.

#include <string>
#include <vector>

/// @return `text` with `replacement`, in which "$1" is the first group, for all that the pattern finds.
[[nodiscard]] std::string ReplaceAll(const std::string& text, const std::string& pattern, const std::string& replacement);

/// @return each place that the pattern finds: the place itself, and then its groups.
[[nodiscard]] std::vector<std::vector<std::string>> FindAll(const std::string& text, const std::string& pattern);
