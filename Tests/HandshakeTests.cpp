// The handshake and the version request, over a scripted transport.

#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

namespace
{

using Texts = std::vector<std::string>;

const std::string kLegacy = R"({"device_token_auth":false})";
const ScriptedReply kOffer{200, R"({"sync":{"1.3":{"path":"/p"}}})", 0, {}};
const ScriptedReply kMode{200, kLegacy, 0, {}};

struct HandshakeResult
{
    ResultCode code;
    std::uint32_t mode;
    std::uint32_t value;
};

HandshakeResult ShakeHands(ScriptedClient& client)
{
    HandshakeResult result{0, 99, 99};
    result.code = client->Init(result.mode, result.value);
    return result;
}

// The path that the handshake asks "/init" of and the value that it hands on, or what it returned instead.
std::string Chosen(const std::string& endpoints)
{
    ScriptedClient client;
    client.script.replies = {{200, endpoints, 0, {}}, kMode};
    const HandshakeResult result = ShakeHands(client);
    return client.script.requests.size() < 2
               ? std::to_string(result.code)
               : client.script.requests[1].at(0) + " value " + std::to_string(static_cast<std::int32_t>(result.value));
}

TEST(Handshake, AsksForEndpointsAndModeAndKeepsTheAnswer)
{
    ScriptedClient client;
    client->SetServer("HTTPS://server");
    client.script.replies = {{200, R"({"sync":{"1.2":{"path":"/sync/12","tos":7}}})", 0, {}},
                             {200, R"({"device_token_auth":"true"})", 0, {}}};
    TraceCapture trace;
    for (const char* round : {"asked", "kept"})
    {
        SCOPED_TRACE(round);
        const HandshakeResult result = ShakeHands(client);
        EXPECT_EQ(result.code, 0U);
        EXPECT_EQ(result.mode, 2U);
        EXPECT_EQ(result.value, 1U);
    }
    EXPECT_EQ(client.script.requests,
              (std::vector<Script::Steps>{{"GET /endpoints flags=8388608", "send"}, {"GET /sync/12/init flags=8388608", "send"}}));
    EXPECT_EQ(client.script.connections, Texts(2, "server:8080 send=0 receive=0"));
    EXPECT_EQ(client.script.timeouts, (std::vector<std::vector<int>>{{60000, 30000, 30000, 30000}, {60000, 60000, 300000, 300000}}));
    for (const char* message : {"Server: server, Port: 8080", "Extracted 1 QD endpoints from response and 0 logging endpoints",
                                "Found endpoint 1.2 compatible with 1.1, path=/sync/12, TOS=7", "Server mode is DEVICE_TOKEN_AUTH",
                                "Returning cached server mode 2"})
        EXPECT_EQ(trace.CountOf(EVT_INFO, message), 1U) << message;
}

TEST(Handshake, TakesTheTopOfTheFirstRunOfVersions)
{
    const struct
    {
        std::string endpoints;
        const char* expected;
    } cases[] = {
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":"/1"},"1.2":{"path":"/2"}}})", "GET /2/init flags=0 value 0"},
        {R"({"sync":{"1.1":{"path":"/1"},"1.3":{"path":"/3"}}})", "GET /1/init flags=0 value 0"},
        {R"({"sync":{"1":{"path":"/bare"}}})", "GET /bare/init flags=0 value 0"},
        {R"({"sync":{"1":{"path":"/bare"},"1.0":{"path":"/0"}}})", "GET /0/init flags=0 value 0"},
        {R"({"sync":{"1":{"path":"/bare"},"1.1":{"path":"/1"}}})", "GET /1/init flags=0 value 0"},
        {R"({"sync":{"1.50":{"path":"/50"}}})", "GET /50/init flags=0 value 0"},
        {R"({"sync":{"1.51":{"path":"/51"}}})", "19006"},
        {R"({"sync":{"1.0":{"path":""}}})", "19006"},
        {R"({"qd":{"1.1":{"path":"/qd"}}})", "GET /qd/init flags=0 value 0"},
        {R"({"qd":{"1.1":{"path":"/qd"}},"sync":{"1.1":{"path":"/sync"}}})", "GET /sync/init flags=0 value 0"},
        // The value is the terms-of-service number without its two lowest bits: rounded down.
        {R"({"sync":{"1.0":{"path":"/p","tos":7}}})", "GET /p/init flags=0 value 1"},
        {R"({"sync":{"1.0":{"path":"/p","tos":-5}}})", "GET /p/init flags=0 value -2"},
        {R"({"sync":{"1.0":{"path":"/p","tos":2147483647}}})", "GET /p/init flags=0 value 536870911"},
        // What cannot be read ends the reading; what was read before stays.
        {R"({"sync":{"1.0":{"path":"/0","tos":"x"},"1.1":{"path":"/1"}}})", "19006"},
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":["/1"]}}})", "GET /0/init flags=0 value 0"},
        {R"({"sync":{"0.9":5,"1.0":{"path":"/0"},"1.1":null}})", "GET /0/init flags=0 value 0"},
        {R"({"sync":[{"path":"/0"}]})", "19006"},
        {R"([{"sync":{"1.0":{"path":"/0"}}}])", "19006"},
        {"5", "19006"},
        {"null", "19006"},
        {"", "19006"},
        {std::string(10000, '['), "19006"},
        {R"({"sync":{"1.0":)" + std::string(10000, '{'), "19006"},
    };
    for (const auto& offer : cases)
        EXPECT_EQ(Chosen(offer.endpoints), offer.expected) << offer.endpoints.substr(0, 100);
}

TEST(Handshake, ReportsTheLoggingEndpoint)
{
    const std::string known = "Found logging API version 1.0";
    const std::string other = "Logging not supported on this appliance";
    for (const auto& [audit, message] : std::vector<std::pair<std::string, std::string>>{
             {R"(,"audit":{"1":{"path":"/audit"}})", known}, {R"(,"audit":{"2":{"path":"/audit"}})", other}, {"", ""}})
    {
        ScriptedClient client;
        client.script.replies = {{200, R"({"sync":{"1.0":{"path":"/p"}})" + audit + "}", 0, {}}, kMode};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, 0U);
        EXPECT_EQ(trace.Has(EVT_INFO, known), message == known);
        EXPECT_EQ(trace.Has(EVT_INFO, other), message == other);
    }
}

TEST(Handshake, EndpointsThatCannotBeHadAreAnIncompatibleServer)
{
    const struct
    {
        ScriptedReply reply;
        Texts errors;
    } cases[] = {
        {{200, R"({"sync":{"2.0":{"path":"/2"}}})", 0, {}}, {}},
        {{200, "{}", 0, {}}, {"Failed to extract endpoints from response"}},
        {{200, std::nullopt, 0, {}}, {"Response memory is NULL!"}},
        {{404, "no", 0, {}}, {"GetHTTPStatus shows failure, code: 404"}},
        {{0, std::nullopt, 12029, {}}, {"GetResponse failed, error code: 12029"}},
    };
    const std::string frame(76, '=');
    for (const auto& step : cases)
    {
        ScriptedClient client;
        client.script.replies = {step.reply};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, 19006U);
        Texts errors = step.errors;
        errors.insert(errors.end(), {frame, "FATAL ERROR: The appliance is not compatible with this version of the client", frame});
        EXPECT_EQ(trace.Messages(EVT_ERROR), errors);
        EXPECT_EQ(client.script.timeouts.size(), 1U) << "timeouts are put back only once the server was asked for its mode";
    }
}

TEST(Handshake, EndsEachFailingStepWithItsCodeAndPutsTheTimeoutsBack)
{
    const std::string connectionFailed = "WinHttpConnection failed to initialise, error code: -2147012889";
    const struct
    {
        Script::Failure timeouts, connection, request;
        ScriptedReply mode;
        ResultCode expected;
        std::string message;
    } cases[] = {
        {{1, 0, 6}, {}, {}, kMode, 0x80070006, "WinHttpSetTimeouts failed, error code: 6"},
        {{}, {2, 0x80072EE7, 12007}, {}, kMode, 12007, connectionFailed},
        {{}, {2, 0x80072EE7, 0}, {}, kMode, 0x80072EE7, connectionFailed}, // no last error: the result itself
        {{}, {}, {2, 0x80070006, 6}, kMode, 6, "WinHttpRequest failed to initialise, error code: -2147024890"},
        {{}, {}, {}, {0, std::nullopt, 12002, {}}, 12002, "GetResponse failed, error code: 12002"},
        {{}, {}, {}, {200, std::nullopt, 0, {}}, 8, "Received a NULL response buffer."},
        {{}, {}, {}, {503, "{}", 0, {}}, 20503, "GetHTTPStatus shows failure, code: 503"},
        {{}, {}, {}, {400, R"({"errorId":"17"})", 0, {}}, 20017, "GetHTTPStatus shows failure, code: 400"},
        {{}, {}, {}, {200, R"({"device_token_auth":1})", 0, {}}, 12004, "Bad response to Init request!"},
        {{}, {}, {}, {200, "<html>", 0, {}}, 12004, "Bad response to Init request!"},
    };
    for (const auto& step : cases)
    {
        SCOPED_TRACE(step.message + " " + std::to_string(step.expected));
        ScriptedClient client;
        client.script.timeoutsFailure = step.timeouts;
        client.script.connectionFailure = step.connection;
        client.script.requestFailure = step.request;
        client.script.replies = {kOffer, step.mode};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, step.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{step.message});
        if (step.timeouts.call == 0)
        {
            EXPECT_EQ(client.script.timeouts.back(), (std::vector<int>{60000, 60000, 300000, 300000}));
            EXPECT_TRUE(client->IsApiVersionAtLeast13()) << "version and paths stay known";
        }

        // The mode stays unknown: the next try is whole again, and works.
        client.script = {};
        client.script.replies = {kOffer, kMode};
        EXPECT_EQ(ShakeHands(client).code, 0U);
        EXPECT_EQ(client.script.requests.size(), 2U);
    }
}

TEST(Handshake, TalksToOneServerWhateverIsSetMeanwhile)
{
    ScriptedClient client;
    client.script.replies = {{200, kOffer.body, 0, [&] { client->SetPort(9); }}, kMode};
    EXPECT_EQ(ShakeHands(client).code, 0U);
    EXPECT_EQ(client.script.connections.at(1), "server:8080 send=0 receive=0");
}

TEST(Handshake, RunningOutOfMemoryEndsTheOperationThatAsked)
{
    ScriptedClient client;
    client.script.throwOnSend = true;
    EXPECT_EQ(ShakeHands(client).code, 0x80004005U);
    std::wstring policy;
    std::uint32_t value = 0;
    EXPECT_EQ(client->Login(L"ann", L"p", L"", L"", policy, value, {}, {}), 0x80004005U);
    EXPECT_EQ(client.script.requests.size(), 2U) << "no password goes out behind a handshake that was cut off";
}

TEST(Handshake, KnowsWhichVersionsAreAtLeast13)
{
    for (const auto& [version, expected] : std::vector<std::pair<const char*, bool>>{{"1.2", false}, {"1.3", true}, {"1.10", true}})
    {
        ScriptedClient client;
        EXPECT_FALSE(client->IsApiVersionAtLeast13());
        client.Negotiate(version);
        EXPECT_EQ(client->IsApiVersionAtLeast13(), expected) << version;
    }
}

TEST(VersionRequest, EndsEachAnswerWithItsCode)
{
    const struct
    {
        ScriptedReply reply;
        ResultCode expected;
        const char* build;
        Texts errors;
    } cases[] = {
        {{200, R"({"build_number":"7.2-\u00e9\ud83d\ude00"})", 0, {}}, 0, "7.2-\xC3\xA9\xF0\x9F\x98\x80", {}},
        {{200, R"({"build_number":7})", 0, {}}, 12004, "before", {"Bad response to version request!"}},
        {{200, std::nullopt, 0, {}}, 8, "before", {"Response memory is NULL!"}},
        {{0, std::nullopt, 12030, {}}, 12030, "before", {"GetResponse failed, error code: 12030"}},
        {{204, "", 0, {}}, 20204, "before", {"GetHTTPStatus shows failure, code: 204"}},
    };
    for (const auto& step : cases)
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {step.reply};
        TraceCapture trace;
        std::wstring build = L"before";
        EXPECT_EQ(client->Version(build), step.expected);
        EXPECT_EQ(ToNarrow(build), step.build);
        EXPECT_EQ(trace.Messages(EVT_ERROR), step.errors);
        EXPECT_EQ(client.script.requests, (std::vector<Script::Steps>{{"GET /sync/version flags=0", "send"}}));
    }
}

} // namespace
