#pragma once

/// @file
/// Where a request goes: scheme, server, port and request target, in the form in which they may stand in a URL.

#include "../Secret.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct Address
{
    bool secure = false;
    std::string host; ///< an IPv6 address in brackets
    std::uint16_t port = 0;
    SecretText target; ///< path and query, beginning with '/'

    /// What stands in front of the target.
    std::string Origin() const;
    SecretText Url() const;
};

/// The server's name as it stands in a URL: an IPv6 address, with or without brackets, in brackets; a name with letters beyond
/// ASCII in the form in which it is resolved. Nothing where the text cannot be a server's name, such as one with a port or a path.
[[nodiscard]] std::optional<std::string> HostForUrl(std::string_view server);

/// The request target for a path: what must not stand in one is percent-escaped, what is escaped already stays, a missing
/// '/' in front is added.
[[nodiscard]] SecretText TargetForPath(std::string_view path);
