#pragma once

/// @file
/// The library over its own transport, against a loopback server of the test.

#include "Instance.h"
#include "RawServer.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

// The handshake's replies of a server with one API version; version 1.0 makes it a legacy server. Empty: not a handshake request.
inline std::string AnswerHandshake(const std::string& request, const std::string& version = "1.3")
{
    if (request.starts_with("GET /endpoints "))
        return HttpReply(200, R"({"sync":{")" + version + R"(":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})");
    if (request.starts_with("GET /sync/init "))
        return HttpReply(200, version == "1.0" ? R"({"device_token_auth":false})" : R"({"device_token_auth":true})");
    return {};
}

// Answers the handshake, and every other request as the test says.
inline RawServer::Script AnswerWith(std::function<std::string(const std::string& request)> answer, const std::string& version = "1.3")
{
    return AnswerEach([=](const std::string& request) {
        const std::string handshake = AnswerHandshake(request, version);
        return handshake.empty() ? answer(request) : handshake;
    });
}

// Answers the handshake. The test serves every other request, whose head has been read.
inline RawServer::Script AfterHandshake(std::function<void(RawConnection&, const std::string& head)> serve,
                                        const std::string& version = "1.3")
{
    return [serve = std::move(serve), version](RawConnection& connection) {
        for (;;)
        {
            const std::string head = connection.ReadHead();
            if (const std::string handshake = AnswerHandshake(head, version); !handshake.empty())
                connection.Send(handshake);
            else
                serve(connection, head);
        }
    };
}

inline IQuendraHttpAPI* CreateInstanceFor(const RawServer& server)
{
    IQuendraHttpAPI* const api = CreateInstance(L"my device");
    api->SetServer("127.0.0.1");
    api->SetPort(server.Port());
    return api;
}

/// A server and an instance that has shaken hands with it.
class Library : public RawServer, public Instance
{
public:
    explicit Library(Script script, bool shakesHands = true) : RawServer(std::move(script)), Instance(CreateInstanceFor(*this))
    {
        EXPECT_EQ(shakesHands ? ShakeHands() : Result::Success, Result::Success);
    }

    /// Requests that have come, without the handshake's.
    [[nodiscard]] std::size_t Served() const { return RequestCount() - 2; }
    /// The last request, whole.
    [[nodiscard]] std::string LastRequest() const { return Requests().back(); }
};
