#pragma once

/// @file
/// The server as the user names it.

#include <compare>
#include <optional>
#include <string>
#include <string_view>

/// One server: what tells two conversations apart.
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

    /// For people: the URL, with the port where it is not the scheme's own.
    [[nodiscard]] std::string Text() const;
};

/// A host as resolvers and certificates have it: an IPv6 address without its brackets.
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

/// The address that a server's text names, with a port that was named elsewhere or, failing that, the scheme's own.
/// @throws UsageError where two different ports are named.
[[nodiscard]] ServerAddress MakeAddress(const ServerText& text, std::optional<int> port);
