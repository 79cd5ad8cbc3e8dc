#include "ServerAddress.h"

#include "Failures.h"
#include "System.h"
#include "TextComparison.h"

#include <algorithm>
#include <charconv>

namespace
{

constexpr int kHttpPort = 80;
constexpr int kHttpsPort = 443;

std::string LowerCase(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), LowerAscii<char>);
    return lower;
}

int DefaultPort(bool secure)
{
    return secure ? kHttpsPort : kHttpPort;
}

// What stands before an "@" may be a password.
[[noreturn]] void Refuse(std::string_view text, const std::string& reason)
{
    const std::size_t at = text.rfind('@');
    throw UsageError("--server " + (at == std::string_view::npos ? std::string(text) : "..." + std::string(text.substr(at))) + ": " +
                     reason);
}

// Where the host ends: at the colon before a port, or at the end.
std::size_t HostLength(std::string_view text, std::string_view rest)
{
    if (!rest.starts_with('['))
    {
        const std::size_t colon = rest.find(':');
        if (colon != std::string_view::npos && rest.find(':', colon + 1) != std::string_view::npos)
            Refuse(text, "an IPv6 address stands in brackets, as in http://[::1]");
        return std::min(colon, rest.size());
    }
    const std::size_t bracket = rest.find(']');
    if (bracket == std::string_view::npos)
        Refuse(text, "the bracket is not closed");
    if (bracket + 1 < rest.size() && rest[bracket + 1] != ':')
        Refuse(text, "after the bracket only a port can stand");
    return bracket + 1;
}

} // namespace

bool ServerAddress::IsThisMachine() const
{
    return host == "localhost" || host.ends_with(".localhost") || host == "[::1]" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

std::string WithoutBrackets(const std::string& host)
{
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

std::string ServerAddress::Url() const
{
    return (secure ? "https://" : "http://") + host;
}

std::string ServerAddress::Text() const
{
    return port == DefaultPort(secure) ? Url() : Url() + ":" + std::to_string(port);
}

int ParsePort(std::string_view text)
{
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535)
        throw UsageError("a port is a number from 1 to 65535, not '" + std::string(text) + "'");
    return port;
}

ServerText ParseServer(std::string_view text)
{
    ServerText server;
    std::string_view rest = text;
    if (const std::size_t scheme = text.find("://"); scheme != std::string_view::npos)
    {
        const std::string name = LowerCase(text.substr(0, scheme));
        if (name != "http" && name != "https")
            Refuse(text, "the server is reached by http:// or https:// only");
        server.secure = name == "https";
        rest.remove_prefix(scheme + 3);
    }
    while (rest.ends_with('/'))
        rest.remove_suffix(1);
    if (rest.empty())
        Refuse(text, "there is no host in it");
    if (rest.find_first_of("/?#\\") != std::string_view::npos)
        Refuse(text, "only a host is wanted, without a path");
    if (rest.find('@') != std::string_view::npos)
        Refuse(text, "only a host is wanted; 'login USER' names the user");
    if (std::any_of(rest.begin(), rest.end(),
                    [](char character) { return static_cast<unsigned char>(character) <= ' ' || character == 0x7F; }))
        Refuse(text, "a host has neither spaces nor control characters");

    const std::size_t hostLength = HostLength(text, rest);
    if (hostLength == 0)
        Refuse(text, "there is no host in it");
    server.host = LowerCase(rest.substr(0, hostLength));
    if (std::ranges::any_of(server.host, [](char character) { return static_cast<unsigned char>(character) > 0x7F; }))
    {
        const auto ascii = System::AsciiHost(server.host);
        if (!ascii)
            Refuse(text, "that is no host's name");
        server.host = *ascii;
    }
    if (hostLength < rest.size())
        server.port = ParsePort(rest.substr(hostLength + 1));
    return server;
}

ServerAddress MakeAddress(const ServerText& text, std::optional<int> port)
{
    if (port && text.port && *port != *text.port)
        throw UsageError("two ports are named: " + std::to_string(*text.port) + " with the server and " + std::to_string(*port));
    return {text.secure, text.host, text.port.value_or(port.value_or(DefaultPort(text.secure)))};
}
