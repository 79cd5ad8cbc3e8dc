#pragma once

/// @file
/// The library over its own transport, against a loopback server of the test.

#include "Instance.h"
#include "RawServer.h"

#include <cstdlib>
#include <functional>
#include <string>

// A server with one API version, which is a legacy one where that is 1.0; tests say what else it answers.
inline std::string AnswerHandshake(const std::string& request, const std::string& version = "1.3")
{
    if (request.starts_with("GET /endpoints "))
        return HttpReply(200, R"({"sync":{")" + version + R"(":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})");
    if (request.starts_with("GET /sync/init "))
        return HttpReply(200, version == "1.0" ? R"({"device_token_auth":false})" : R"({"device_token_auth":true})");
    return {};
}

// Shakes hands, and gives every other request the one reply.
inline RawServer::Script AnswerAll(const std::string& reply, const std::string& version = "1.3")
{
    return AnswerEach([=](const std::string& request) {
        const std::string handshake = AnswerHandshake(request, version);
        return handshake.empty() ? HttpReply(200, reply) : handshake;
    });
}

// What the request's Content-Length announces.
inline std::uint64_t BodyLength(const std::string& head)
{
    return std::strtoull(HeaderValue(head, "Content-Length").c_str(), nullptr, 10);
}

// Shakes hands, and leaves every other request, its head read, to the test.
inline RawServer::Script AfterHandshake(std::function<void(RawConnection&, const std::string& head)> serve)
{
    return [serve = std::move(serve)](RawConnection& connection) {
        for (;;)
        {
            const std::string head = connection.ReadHead();
            if (const std::string handshake = AnswerHandshake(head); !handshake.empty())
                connection.Send(handshake);
            else
                serve(connection, head);
        }
    };
}

/// An instance whose server is one of the test's.
class Library : public Instance
{
public:
    explicit Library(const RawServer& server, const char* host = "127.0.0.1") : Instance(CreateInstance(L"my device"))
    {
        Api().SetServer(host);
        Api().SetPort(server.Port());
    }
};
