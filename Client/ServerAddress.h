#pragma once

/// @file
/// The server's address as the user writes it.

#include <compare>
#include <optional>
#include <string>
#include <string_view>

/// One server: scheme, host and port.
struct ServerAddress
{
    bool secure = false;
    std::string host; ///< lower case; an IPv6 address in brackets.
    int port = 0;

    auto operator<=>(const ServerAddress&) const = default;

    /// What the library's `SetServer` takes: `http://host` or `https://host`.
    [[nodiscard]] std::string Url() const;

    /// Whether requests stay on this machine.
    [[nodiscard]] bool IsThisMachine() const;

    /// For display: the URL, with the port unless it is the scheme's default.
    [[nodiscard]] std::string Text() const;
};

/// A host for resolvers and certificates: an IPv6 address without its brackets.
[[nodiscard]] std::string WithoutBrackets(const std::string& host);

/// A server's text: `https://host`, `http://host` or a host, which means https, each with an optional `:port`.
struct ServerText
{
    bool secure = true;
    std::string host;
    std::optional<int> port;
};

/// @throws UsageError, saying what is wrong with the text.
[[nodiscard]] ServerText ParseServer(std::string_view text);

/// @throws UsageError
[[nodiscard]] int ParsePort(std::string_view text);

/// The address in a server's text, with a port that was given separately or else the scheme's default.
/// @throws UsageError where two different ports are named.
[[nodiscard]] ServerAddress MakeAddress(const ServerText& text, std::optional<int> port);
