#pragma once

/// @file
/// Searches this process's memory for secrets. Tests hold a secret written backwards, so that the search does not find their own text.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

template <typename Text> Text Spelled(std::string_view secret)
{
    return Text(secret.rbegin(), secret.rend());
}

/// How often a block holds a secret, as characters of a width, behind its first 16: those of a freed block are overwritten.
inline int CountIn(const char* begin, std::size_t size, std::string_view secret, std::size_t width)
{
    secret.remove_suffix(16);
    int count = 0;
    const char* const end = begin + size;
    for (const std::size_t bytes = secret.size() * width; static_cast<std::size_t>(end - begin) >= bytes; ++begin)
    {
        begin = static_cast<const char*>(std::memchr(begin, secret.back(), static_cast<std::size_t>(end - begin) - bytes + 1));
        if (begin == nullptr)
            break;
        std::size_t same = 1;
        while (same < bytes && begin[same] == (same % width == 0 ? secret[secret.size() - 1 - same / width] : '\0'))
            ++same;
        count += same == bytes ? 1 : 0;
    }
    return count;
}

/// @return how often memory that is readable and writable holds the secret, as narrow and as wide characters.
inline int CountInMemory(std::string_view secret)
{
    std::vector<std::pair<unsigned long, unsigned long>> ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
    {
        unsigned long begin = 0;
        unsigned long end = 0;
        char access[3] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %2c", &begin, &end, access) == 3 && std::string_view(access, 2) == "rw")
            ranges.emplace_back(begin, end);
    }
    int count = 0;
    for (const auto& [begin, end] : ranges)
        for (const std::size_t width : {sizeof(char), sizeof(wchar_t)})
            count += CountIn(reinterpret_cast<const char*>(begin), end - begin, secret, width); // NOLINT(performance-no-int-to-ptr)
    return count;
}
