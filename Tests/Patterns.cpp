#include "Patterns.h"

#include <regex>

std::string ReplaceAll(const std::string& text, const std::string& pattern, const std::string& replacement)
{
    return std::regex_replace(text, std::regex(pattern), replacement);
}

std::vector<std::vector<std::string>> FindAll(const std::string& text, const std::string& pattern)
{
    const std::regex compiled(pattern);
    std::vector<std::vector<std::string>> found;
    for (auto place = std::sregex_iterator(text.begin(), text.end(), compiled); place != std::sregex_iterator(); ++place)
        found.emplace_back(place->begin(), place->end());
    return found;
}
