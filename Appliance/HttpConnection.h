#pragma once

/// @file
/// HTTP/1.1 on one connection.

#include "Channel.h"
#include "Http.h"

namespace ApplianceParts
{

/// Serves one request after the other until the client or a deadline ends the connection.
/// @param channel  what the bytes go through: the socket itself, or TLS over it.
void ServeConnection(ISocket& socket, IChannel& channel, const RequestHandler& handler);

} // namespace ApplianceParts
