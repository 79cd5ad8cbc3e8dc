#pragma once

/// @file
/// HTTP/1.1 on one connection.

#include "Channel.h"
#include "Http.h"

namespace ApplianceParts
{

/// Serves requests one after the other until the client or a timeout ends the connection.
/// @param channel  carries the bytes: the socket itself, or TLS over it.
void ServeConnection(ISocket& socket, IChannel& channel, const RequestHandler& handler);

} // namespace ApplianceParts
