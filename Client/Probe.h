#pragma once

/// @file
/// Details of the connection to a server. `Posix/` and `Windows/` each have their version. Narrow text is UTF-8.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ServerAddress;

namespace Probe
{

/// The operating system and its version.
[[nodiscard]] std::string Platform();

struct Resolution
{
    std::vector<std::string> addresses;
    std::string problem; ///< why there are no addresses.
};

/// @param host  an IPv6 address in brackets.
[[nodiscard]] Resolution Resolve(const std::string& host);

struct ProxySetting
{
    std::string proxy; ///< without user name and password; empty if requests to the server use no proxy.
    std::string source;
};

/// The proxy that the library's transport uses for a server.
[[nodiscard]] ProxySetting ProxyFor(const ServerAddress& server);

enum class Trouble
{
    Untrusted,
    NotInTime,
    WrongName,
    Revoked,
    Other
};

/// Something wrong with a certificate.
struct Problem
{
    Trouble trouble = Trouble::Other;
    std::string text;
};

struct Certificate
{
    std::string subject;
    std::string issuer;
    std::string names;     ///< the servers that it is valid for.
    std::string notBefore; ///< 2026-03-01T12:30:15Z
    std::string notAfter;
    std::vector<Problem> problems;
};

struct Reply
{
    std::string failure; ///< why there is no reply; empty where there is one.
    bool isConnected = false;
    std::string peer; ///< the connection's remote address; empty if the system does not tell.

    bool isSecure = false; ///< TLS was established. The values below may still be unknown.
    std::string protocol;
    std::string cipher;
    std::vector<Certificate> chain; ///< the server's own first.

    int status = 0;
    std::string date;     ///< the header.
    std::string location; ///< the header.
    std::string body;     ///< cut off at 64 KiB.
};

/// Sends a GET request without a session, as the library would, except that it accepts any server certificate.
[[nodiscard]] Reply Get(const ServerAddress& server, std::string_view path);

inline constexpr std::size_t kLongestBody = 65536;
inline constexpr int kConnectMilliseconds = 15000;
inline constexpr int kReplyMilliseconds = 30000;

} // namespace Probe
