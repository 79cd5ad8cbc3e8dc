#pragma once

/// @file
/// The HTTP side: listens on loopback, keeps connections, turns what comes in into `Request`s and replies with `Reply`s.

#include "Channel.h"
#include "Exchange.h"

#include <functional>
#include <memory>

namespace ApplianceParts
{

class HttpServer
{
public:
    using Handler = std::function<Reply(const Request&)>;

    /// @param handler  called on the connection's own thread; may block, which holds up nobody else. May throw `ApiError`.
    /// @param mostConnections  served at once; a further one takes the place of the one that has been idle longest.
    HttpServer(ChannelFactory channels, std::size_t mostConnections, Handler handler);
    ~HttpServer();

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Listens on a port of 127.0.0.1, 0 for any free one, and serves on threads of its own.
    /// @returns the port.
    /// @throws std::runtime_error where the port cannot be had.
    int Start(int port);

    /// Ends every connection and returns when the last thread has ended. A handler that waits has to be told by its own side.
    void Stop();

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace ApplianceParts
