#include "Address.h"

#include <curl/curl.h>

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <memory>
#include <new>

namespace
{
struct UrlCleanup
{
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
struct TextCleanup
{
    void operator()(char* text) const noexcept { curl_free(text); }
};

/// A part of a URL; nothing where it has none.
std::optional<std::string> PartOf(CURLU* url, CURLUPart part, unsigned flags = 0)
{
    char* text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK)
    {
        return std::nullopt;
    }
    const std::unique_ptr<char, TextCleanup> owned(text);
    return std::string(text);
}

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

char LowerAscii(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
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

std::optional<Address> ResolveLocation(const Address& from, const std::string& location)
{
    const std::unique_ptr<CURLU, UrlCleanup> url(curl_url());
    if (!url)
    {
        throw std::bad_alloc();
    }
    // The second setting is resolved against the first.
    if (curl_url_set(url.get(), CURLUPART_URL, from.Url().c_str(), CURLU_PATH_AS_IS) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, location.c_str(), CURLU_ALLOW_SPACE) != CURLUE_OK)
    {
        return std::nullopt;
    }
    const auto scheme = PartOf(url.get(), CURLUPART_SCHEME);
    const auto host = PartOf(url.get(), CURLUPART_HOST);
    const auto port = PartOf(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    const auto path = PartOf(url.get(), CURLUPART_PATH);
    const auto query = PartOf(url.get(), CURLUPART_QUERY);
    if (!host || !port || !path || (scheme != "http" && scheme != "https"))
    {
        return std::nullopt;
    }
    Address address;
    address.secure = scheme == "https";
    address.host = *host;
    address.target = TargetForPath(query ? *path + "?" + *query : *path);
    std::from_chars(port->data(), port->data() + port->size(), address.port);
    return address;
}

bool IsSameHost(const Address& left, const Address& right)
{
    return std::equal(left.host.begin(), left.host.end(), right.host.begin(), right.host.end(),
                      [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}
