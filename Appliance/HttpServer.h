#pragma once

/// @file
/// HTTP/1.1 on loopback, plain or over TLS; each connection has a thread of its own.

#include "Http.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace ApplianceParts
{

class Socket;

/// Serves one connection's requests until the client or a timeout ends it.
using ConnectionServer = std::function<void(Socket&)>;

[[nodiscard]] ConnectionServer ServePlain(RequestHandler handler);

/// @throws std::runtime_error if the certificate or the key cannot be used, or this build has no TLS.
[[nodiscard]] ConnectionServer ServeTls(const std::filesystem::path& certificate, const std::filesystem::path& privateKey,
                                        RequestHandler handler);

class IHttpServer
{
public:
    /// Calls `Stop`.
    virtual ~IHttpServer() = default;

    /// Listens on a port of 127.0.0.1 (0: any free port), and serves on its own threads.
    /// @return the port.
    /// @throws std::runtime_error if the port cannot be used.
    virtual int Start(int port) = 0;

    /// Ends every connection and returns when the last thread has ended. The caller must end handlers that wait.
    virtual void Stop() = 0;
};

/// @param mostConnections  the limit of connections; beyond it, a new one replaces the one that has waited longest for its client.
/// @param serve            called on the connection's own thread; may block without delaying other connections.
[[nodiscard]] std::unique_ptr<IHttpServer> MakeHttpServer(std::size_t mostConnections, ConnectionServer serve);

} // namespace ApplianceParts
