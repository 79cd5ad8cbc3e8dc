#pragma once

/// @file
/// HTTP/1.1 on loopback, plain or over TLS; each connection has a thread of its own.

#include "Faults.h"
#include "Http.h"
#include "Options.h"

namespace ApplianceParts
{

class Socket;

/// Serves one connection's requests until the client or a timeout ends it.
using ConnectionServer = std::function<void(Socket&)>;

/// @throws std::runtime_error if the certificate or the key cannot be used, or this build has no TLS.
[[nodiscard]] ConnectionServer ServeTls(const Options& options, RequestHandler handler, FaultChooser chooseFault);

/// Listens on 127.0.0.1 and serves on its own threads, with TLS if the options name a certificate. If there are as many connections as the
/// options allow, a new one replaces the one that has waited longest for its client or for changes.
/// @param port     0: any free port; receives the port.
/// @param handler  called on the connection's own thread; may block without delaying other connections.
/// @param chooseFault  names the faults to play; empty: none.
/// @return destroying it ends every connection, and returns when the last thread has ended; the caller must end handlers that wait.
/// @throws std::runtime_error if the port or the certificate cannot be used.
[[nodiscard]] std::shared_ptr<void> StartHttpServer(const Options& options, int& port, const RequestHandler& handler,
                                                    const FaultChooser& chooseFault = {});

} // namespace ApplianceParts
