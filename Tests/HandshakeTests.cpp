// The handshake and the version request, over a scripted transport.

#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

namespace
{

const std::string kLegacy = R"({"device_token_auth":false})";

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

// The path that the handshake asks "/init" of, or what it returned instead.
std::string ChosenPath(const std::string& endpoints)
{
    ScriptedClient client;
    client.script.replies = {{200, endpoints, 0, {}}, {200, kLegacy, 0, {}}};
    const ResultCode code = ShakeHands(client).code;
    return client.script.requests.size() == 2 ? client.script.requests[1].at(0) : std::to_string(code);
}

TEST(Handshake, AsksForEndpointsAndModeAndKeepsTheAnswer)
{
    ScriptedClient client;
    client->SetServer("HTTPS://server");
    client.script.replies = {{200, R"({"sync":{"1.2":{"path":"/sync/12","tos":7}}})", 0, {}},
                             {200, R"({"device_token_auth":"true"})", 0, {}}};
    TraceCapture trace;
    HandshakeResult result = ShakeHands(client);
    EXPECT_EQ(result.code, 0U);
    EXPECT_EQ(result.mode, 2U);
    EXPECT_EQ(result.value, 1U);
    EXPECT_EQ(client.script.requests,
              (std::vector<Script::Steps>{{"GET /endpoints flags=8388608", "send"}, {"GET /sync/12/init flags=8388608", "send"}}));
    EXPECT_EQ(client.script.connections, (std::vector<std::string>{"server:8080 send=0 receive=0", "server:8080 send=0 receive=0"}));
    EXPECT_EQ(client.script.timeouts, (std::vector<std::vector<int>>{{60000, 30000, 30000, 30000}, {60000, 60000, 300000, 300000}}));
    EXPECT_FALSE(client->IsApiVersionAtLeast13());
    for (const char* message : {"Server: server, Port: 8080", "Extracted 1 QD endpoints from response and 0 logging endpoints",
                                "Found endpoint 1.2 compatible with 1.1, path=/sync/12, TOS=7", "Server mode is DEVICE_TOKEN_AUTH"})
        EXPECT_TRUE(trace.Has(EVT_INFO, message)) << message;

    client.script = {};
    result = ShakeHands(client);
    EXPECT_EQ(result.mode, 2U);
    EXPECT_EQ(result.value, 1U);
    EXPECT_TRUE(client.script.requests.empty());
    EXPECT_TRUE(trace.Has(EVT_INFO, "Returning cached server mode 2"));
}

TEST(Handshake, TakesTheTopOfTheFirstRunOfVersions)
{
    struct Case
    {
        const char* endpoints;
        const char* expected;
    };
    const Case cases[] = {
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":"/1"},"1.2":{"path":"/2"}}})", "GET /2/init flags=0"},
        {R"({"sync":{"1.1":{"path":"/1"},"1.3":{"path":"/3"}}})", "GET /1/init flags=0"},
        {R"({"sync":{"1":{"path":"/bare"}}})", "GET /bare/init flags=0"},
        {R"({"sync":{"1":{"path":"/bare"},"1.0":{"path":"/0"}}})", "GET /0/init flags=0"},
        {R"({"sync":{"1":{"path":"/bare"},"1.1":{"path":"/1"}}})", "GET /1/init flags=0"},
        {R"({"sync":{"1.50":{"path":"/50"}}})", "GET /50/init flags=0"},
        {R"({"sync":{"1.51":{"path":"/51"}}})", "19006"},
        {R"({"sync":{"2.0":{"path":"/2"}}})", "19006"},
        {R"({"sync":{"1.0":{"path":""}}})", "19006"},
        {R"({"qd":{"1.1":{"path":"/qd"}}})", "GET /qd/init flags=0"},
        {R"({"qd":{"1.1":{"path":"/qd"}},"sync":{"1.1":{"path":"/sync"}}})", "GET /sync/init flags=0"},
        {R"({"sync":{"1.0":{"path":"/0","tos":"x"},"1.1":{"path":"/1"}}})", "19006"},
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":["/1"]}}})", "GET /0/init flags=0"},
        {R"({"sync":{"1.0":null}})", "19006"},
        {R"({"sync":{"0.9":5,"1.0":{"path":"/0"},"1.1":null}})", "GET /0/init flags=0"},
        {R"({"sync":[{"path":"/0"}]})", "19006"},
        {R"([{"sync":{"1.0":{"path":"/0"}}}])", "19006"},
        {R"(5)", "19006"},
        {R"("sync")", "19006"},
        {R"(null)", "19006"},
        {R"({"sync":)", "19006"},
        {"", "19006"},
    };
    for (const Case& offer : cases)
        EXPECT_EQ(ChosenPath(offer.endpoints), offer.expected) << offer.endpoints;
    EXPECT_EQ(ChosenPath(std::string(10000, '[')), "19006");
    EXPECT_EQ(ChosenPath(R"({"sync":{"1.0":)" + std::string(10000, '{')), "19006");
}

TEST(Handshake, DividesTheTosValueRoundingDown)
{
    for (const auto& [tos, expected] :
         std::vector<std::pair<int, std::int32_t>>{{7, 1}, {-1, -1}, {3, 0}, {-5, -2}, {2147483647, 536870911}})
    {
        ScriptedClient client;
        client.script.replies = {{200, R"({"sync":{"1.0":{"path":"/p","tos":)" + std::to_string(tos) + "}}}", 0, {}},
                                 {200, kLegacy, 0, {}}};
        EXPECT_EQ(static_cast<std::int32_t>(ShakeHands(client).value), expected) << tos;
    }
}

TEST(Handshake, ReportsTheLoggingEndpoint)
{
    struct Case
    {
        const char* audit;
        const char* message;
    };
    for (const Case& offer : {Case{R"(,"audit":{"1":{"path":"/audit"}})", "Found logging API version 1.0"},
                              Case{R"(,"audit":{"2":{"path":"/audit"}})", "Logging not supported on this appliance"}, Case{"", nullptr}})
    {
        ScriptedClient client;
        client.script.replies = {{200, R"({"sync":{"1.0":{"path":"/p"}})" + std::string(offer.audit) + "}", 0, {}}, {200, kLegacy, 0, {}}};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, 0U);
        EXPECT_EQ(trace.Mentions("ogging API") || trace.Mentions("Logging not"), offer.message != nullptr);
        EXPECT_TRUE(offer.message == nullptr || trace.Has(EVT_INFO, offer.message));
    }
}

TEST(Handshake, FramesAnIncompatibleServer)
{
    ScriptedClient client;
    client.script.replies = {{200, R"({"sync":{"2.0":{"path":"/2"}}})", 0, {}}};
    TraceCapture trace;
    EXPECT_EQ(ShakeHands(client).code, 19006U);
    const std::string frame(76, '=');
    EXPECT_EQ(trace.Messages(EVT_ERROR),
              (std::vector<std::string>{frame, "FATAL ERROR: The appliance is not compatible with this version of the client", frame}));
    EXPECT_EQ(client.script.timeouts.size(), 1U) << "timeouts are put back only once the server was asked for its mode";
}

TEST(Handshake, EndsEachFailingStepWithItsCodeAndPutsTheTimeoutsBack)
{
    struct Case
    {
        const char* message;
        ResultCode expected;
        ScriptedReply mode = {200, kLegacy, 0, {}};
        Script::Failure timeouts = {};
        Script::Failure connection = {};
        Script::Failure request = {};
    };
    const ScriptedReply fine{200, kLegacy, 0, {}};
    const Case cases[] = {
        {"WinHttpSetTimeouts failed, error code: 6", 0x80070006, fine, {1, 0, 6}},
        {"WinHttpConnection failed to initialise, error code: -2147012889", 12007, fine, {}, {2, 0x80072EE7, 12007}},
        {"WinHttpConnection failed to initialise, error code: -2147012889", 0x80072EE7, fine, {}, {2, 0x80072EE7, 0}},
        {"WinHttpRequest failed to initialise, error code: -2147024890", 6, fine, {}, {}, {2, 0x80070006, 6}},
        {"GetResponse failed, error code: 12002", 12002, {0, std::nullopt, 12002, {}}},
        {"Received a NULL response buffer.", 8, {200, std::nullopt, 0, {}}},
        {"GetHTTPStatus shows failure, code: 503", 20503, {503, "{}", 0, {}}},
        {"GetHTTPStatus shows failure, code: 400", 20017, {400, R"({"errorId":"17"})", 0, {}}},
        {"Bad response to Init request!", 12004, {200, R"({"device_token_auth":1})", 0, {}}},
        {"Bad response to Init request!", 12004, {200, "<html>", 0, {}}},
    };
    for (const Case& step : cases)
    {
        SCOPED_TRACE(std::string(step.message) + " " + std::to_string(step.expected));
        ScriptedClient client;
        const ScriptedReply endpoints{200, R"({"sync":{"1.3":{"path":"/p"}}})", 0, {}};
        client.script.replies = {endpoints, step.mode};
        client.script.timeoutsFailure = step.timeouts;
        client.script.connectionFailure = step.connection;
        client.script.requestFailure = step.request;
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, step.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{step.message}) << trace;
        if (step.timeouts.call == 0)
        {
            EXPECT_EQ(client.script.timeouts.back(), (std::vector<int>{60000, 60000, 300000, 300000}));
            EXPECT_TRUE(client->IsApiVersionAtLeast13()) << "version and paths stay known";
        }

        // The mode stays unknown: the next try is whole again, and works.
        client.script = {};
        client.script.replies = {endpoints, fine};
        EXPECT_EQ(ShakeHands(client).code, 0U);
        EXPECT_EQ(client.script.requests.size(), 2U);
    }
}

TEST(Handshake, EndpointsThatCannotBeAskedForAreAnIncompatibleServer)
{
    struct Case
    {
        ScriptedReply reply;
        const char* message;
    };
    for (const Case& step :
         {Case{{0, std::nullopt, 12029, {}}, "GetResponse failed, error code: 12029"},
          Case{{200, std::nullopt, 0, {}}, "Response memory is NULL!"}, Case{{404, "no", 0, {}}, "GetHTTPStatus shows failure, code: 404"},
          Case{{200, "{}", 0, {}}, "Failed to extract endpoints from response"}})
    {
        ScriptedClient client;
        client.script.replies = {step.reply};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client).code, 19006U);
        EXPECT_TRUE(trace.Has(EVT_ERROR, step.message)) << trace;
    }
}

TEST(Handshake, TalksToOneServerWhateverIsSetMeanwhile)
{
    ScriptedClient client;
    client.script.replies = {{200, R"({"sync":{"1.0":{"path":"/p"}}})", 0, [&] { client->SetPort(9); }}, {200, kLegacy, 0, {}}};
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

TEST(Handshake, IdentifiesItsFunctionsByTheirLines)
{
    ScriptedClient client;
    TraceCapture trace;
    client.Negotiate();
    std::wstring build;
    client->Version(build);
    client->Register(L"ann", L"id");
    for (const auto& [function, line] : std::vector<std::pair<const char*, int>>{
             {"GetEndpoints", 534}, {"GetEndpointsFromResponse", 602}, {"Version", 456}, {"Register", 782}})
    {
        const std::vector<TracedEvent> events = trace.EventsOf(std::string("CNativeHttp::") + function);
        ASSERT_FALSE(events.empty());
        EXPECT_TRUE(events.front().isEntry && events.back().isExit) << function;
        EXPECT_EQ(events.front().line, line);
        EXPECT_EQ(events.back().line, line);
    }
}

TEST(Handshake, KnowsWhichVersionsAreAtLeast13)
{
    for (const auto& [version, expected] :
         std::vector<std::pair<const char*, bool>>{{"1.0", false}, {"1.2", false}, {"1.3", true}, {"1.9", true}})
    {
        ScriptedClient client;
        EXPECT_FALSE(client->IsApiVersionAtLeast13());
        client.Negotiate(version);
        EXPECT_EQ(client->IsApiVersionAtLeast13(), expected) << version;
    }
}

TEST(VersionRequest, ReadsTheBuildNumber)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.replies = {{200, R"({"build_number":"7.2-\u00e9\ud83d\ude00"})", 0, {}}};
    std::wstring build;
    EXPECT_EQ(client->Version(build), 0U);
    EXPECT_EQ(ToNarrow(build), "7.2-\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_EQ(client.script.requests, (std::vector<Script::Steps>{{"GET /sync/version flags=0", "send"}}));
}

TEST(VersionRequest, EndsEachFailureWithItsCode)
{
    struct Case
    {
        ScriptedReply reply;
        ResultCode expected;
        const char* message;
    };
    const Case cases[] = {
        {{200, R"({"build_number":7})", 0, {}}, 12004, "Bad response to version request!"},
        {{200, R"(["build_number"])", 0, {}}, 12004, "Bad response to version request!"},
        {{200, std::nullopt, 0, {}}, 8, "Response memory is NULL!"},
        {{0, std::nullopt, 12030, {}}, 12030, "GetResponse failed, error code: 12030"},
        {{204, "", 0, {}}, 20204, "GetHTTPStatus shows failure, code: 204"},
    };
    for (const Case& step : cases)
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {step.reply};
        TraceCapture trace;
        std::wstring build = L"before";
        EXPECT_EQ(client->Version(build), step.expected);
        EXPECT_TRUE(trace.Has(EVT_ERROR, step.message)) << trace;
        EXPECT_TRUE(build == L"before");
    }
}

} // namespace
