#pragma once

/// @file
/// Listens on loopback and serves each connection on a thread of its own.

#include "Channel.h"
#include "Http.h"

#include <memory>

namespace ApplianceParts
{

class IHttpServer
{
public:
    /// Stops.
    virtual ~IHttpServer() = default;

    /// Listens on a port of 127.0.0.1, 0 for any free one, and serves on threads of its own.
    /// @returns the port.
    /// @throws std::runtime_error if the port cannot be had.
    virtual int Start(int port) = 0;

    /// Ends every connection and returns when the last thread has ended. A handler that waits has to be told by its own side.
    virtual void Stop() = 0;
};

/// @param tls  empty: plain http.
/// @param mostConnections  served at once; a further one takes the place of the one that waits longest for its client.
/// @param handler  called on the connection's own thread; may block, which holds up nobody else.
[[nodiscard]] std::unique_ptr<IHttpServer> MakeHttpServer(TlsAcceptor tls, std::size_t mostConnections, RequestHandler handler);

} // namespace ApplianceParts
