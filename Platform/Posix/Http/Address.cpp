#include "Address.h"

#include <algorithm>
#include <arpa/inet.h>

namespace
{
bool IsIpv6(const std::string& text)
{
    in6_addr address = {};
    return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool MayStandInTarget(char character)
{
    constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,;=:@/?%";
    return kAllowed.find(character) != std::string_view::npos;
}
} // namespace

std::string Address::Url() const
{
    return (secure ? "https://" : "http://") + host + ":" + std::to_string(port) + target;
}

std::optional<std::string> HostForUrl(std::string_view server)
{
    if (server.size() > 2 && server.front() == '[' && server.back() == ']')
    {
        server = server.substr(1, server.size() - 2);
    }
    const auto zone = std::min(server.find('%'), server.size());
    if (IsIpv6(std::string(server.substr(0, zone))))
    {
        // The percent sign before a zone is escaped in a URL.
        const auto name = zone == server.size() ? std::string() : "%25" + std::string(server.substr(zone + 1));
        const bool isZone = std::all_of(name.begin(), name.end(), MayStandInTarget) && name.find('/') == std::string::npos;
        return isZone ? std::optional("[" + std::string(server.substr(0, zone)) + name + "]") : std::nullopt;
    }
    const auto isForeign = [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == '\x7F' ||
               std::string_view("\"#%/:<>?@[\\]^`{|}").find(c) != std::string_view::npos;
    };
    return server.empty() || std::any_of(server.begin(), server.end(), isForeign) ? std::nullopt : std::optional(std::string(server));
}

std::string TargetForPath(std::string_view path)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string target;
    target.reserve(path.size() + 1);
    if (path.empty() || path.front() != '/')
    {
        target.push_back('/');
    }
    for (const char character : path)
    {
        if (MayStandInTarget(character))
        {
            target.push_back(character);
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        target.push_back('%');
        target.push_back(kDigits[byte >> 4]);
        target.push_back(kDigits[byte & 0xFU]);
    }
    return target;
}
