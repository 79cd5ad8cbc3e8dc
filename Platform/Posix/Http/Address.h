#pragma once

/// @file
/// Where a request goes: scheme, server, port and request target, escaped for use in a URL.

#include "../Secret.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Quendra::Platform
{

struct Address
{
    bool secure = false;
    std::string host; ///< an IPv6 address in brackets
    std::uint16_t port = 0;
    SecretText target; ///< path and query, beginning with '/'

    /// The URL without the target: scheme, host and port.
    std::string Origin() const;
    SecretText Url() const;
};

/// The server's name as a URL contains it: an IPv6 address, given with or without brackets, in brackets; a name with letters beyond ASCII
/// in the form in which it is resolved. Nothing if the text cannot be a server's name, such as one with a port or a path.
[[nodiscard]] std::optional<std::string> HostForUrl(std::string_view server);

/// The request target for a path: invalid characters are percent-escaped, existing escapes are kept, a missing leading '/' is added.
[[nodiscard]] SecretText TargetForPath(std::string_view path);

} // namespace Quendra::Platform
