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
    /// Calls `Stop`.
    virtual ~IHttpServer() = default;

    /// Listens on a port of 127.0.0.1 (0: any free port), and serves on its own threads.
    /// @returns the port.
    /// @throws std::runtime_error if the port cannot be used.
    virtual int Start(int port) = 0;

    /// Ends every connection and returns when the last thread has ended. The caller must end handlers that wait.
    virtual void Stop() = 0;
};

/// @param tls  empty: plain http.
/// @param mostConnections  the limit of connections; beyond it, a new one replaces the one that has waited longest for its client.
/// @param handler  called on the connection's own thread; may block without delaying other connections.
[[nodiscard]] std::unique_ptr<IHttpServer> MakeHttpServer(TlsAcceptor tls, std::size_t mostConnections, RequestHandler handler);

} // namespace ApplianceParts
