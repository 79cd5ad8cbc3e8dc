// How a session comes about, over a scripted transport: handshake, login, registration.

#include "Operations.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

namespace
{

using Texts = std::vector<std::string>;

const ScriptedReply kOffer{200, R"({"sync":{"1.3":{"path":"/p"}}})", 0, {}};
const ScriptedReply kMode{200, R"({"device_token_auth":false})", 0, {}};
const std::vector<int> kUsualTimeouts = {60000, 60000, 300000, 300000};

// The handshake's code, the mode and the value.
std::string ShakeHands(ScriptedClient& client)
{
    std::uint32_t mode = 99;
    std::uint32_t value = 99;
    const ResultCode code = client->Init(mode, value);
    return std::to_string(code) + ", mode " + std::to_string(mode) + ", value " + std::to_string(static_cast<std::int32_t>(value));
}

const std::string kDone = "0, mode 1, value 0";
const std::string kIncompatible = "19006, mode 99, value 99";

TEST(Handshake, AsksForEndpointsAndModeAndKeepsTheAnswer)
{
    ScriptedClient client;
    client->SetServer("HTTPS://server");
    client.script.replies = {{200, R"({"sync":{"1.2":{"path":"/sync/12","tos":7}},"audit":{"1":{},"2":{}}})", 0, {}},
                             {200, R"({"device_token_auth":"true"})", 0, {}}};
    TraceCapture trace;
    EXPECT_EQ(ShakeHands(client), "0, mode 2, value 1");
    EXPECT_EQ(ShakeHands(client), "0, mode 2, value 1") << "kept";
    EXPECT_EQ(client.script.requests,
              (std::vector<Script::Steps>{{"GET /endpoints flags=8388608", "send"}, {"GET /sync/12/init flags=8388608", "send"}}));
    EXPECT_EQ(client.script.connections, Texts(2, "server:8080 send=0 receive=0"));
    EXPECT_EQ(client.script.timeouts, (std::vector<std::vector<int>>{{60000, 30000, 30000, 30000}, kUsualTimeouts}));
    for (const char* message : {"Server: server, Port: 8080", "Extracted 1 QD endpoints from response and 2 logging endpoints",
                                "Found logging API version 1.0", "Found endpoint 1.2 compatible with 1.1, path=/sync/12, TOS=7",
                                "Server mode is DEVICE_TOKEN_AUTH", "Returning cached server mode 2"})
        EXPECT_EQ(trace.CountOf(EVT_INFO, message), 1U) << message;
}

TEST(Handshake, TakesTheTopOfTheFirstRunOfVersions)
{
    const struct
    {
        std::string endpoints;
        std::string path; // none: the server is incompatible
        int value = 0;
    } cases[] = {
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":"/1"},"1.2":{"path":"/2"}}})", "/2"},
        {R"({"sync":{"1.1":{"path":"/1"},"1.3":{"path":"/3"}}})", "/1"},
        {R"({"sync":{"1":{"path":"/bare"}}})", "/bare"},
        {R"({"sync":{"1":{"path":"/bare"},"1.0":{"path":"/0"}}})", "/0"},
        {R"({"sync":{"1":{"path":"/bare"},"1.1":{"path":"/1"}}})", "/1"},
        {R"({"sync":{"1.3":{"path":"/3"}}})", "/3"},
        {R"({"sync":{"1.50":{"path":"/50"}}})", "/50"},
        {R"({"sync":{"1.51":{"path":"/51"}}})", ""},
        {R"({"sync":{"1.0":{"path":""}}})", ""},
        {R"({"qd":{"1.1":{"path":"/qd"}}})", "/qd"},
        {R"({"qd":{"1.1":{"path":"/qd"}},"sync":{"1.1":{"path":"/sync"}}})", "/sync"},
        // The value is the terms-of-service number without its two lowest bits: rounded down.
        {R"({"sync":{"1.0":{"path":"/p","tos":7}}})", "/p", 1},
        {R"({"sync":{"1.0":{"path":"/p","tos":-5}}})", "/p", -2},
        // What cannot be read ends the reading; what was read before stays.
        {R"({"sync":{"1.0":{"path":"/0","tos":"x"},"1.1":{"path":"/1"}}})", ""},
        {R"({"sync":{"1.0":{"path":"/0"},"1.1":{"path":["/1"]}}})", "/0"},
        {R"({"sync":{"0.9":5,"1.0":{"path":"/0"},"1.1":null}})", "/0"},
        {R"({"sync":[{"path":"/0"}]})", ""},
        {"5", ""},
        {"<html>", ""},
        {std::string(10000, '['), ""},
    };
    for (const auto& offer : cases)
    {
        SCOPED_TRACE(offer.endpoints.substr(0, 100));
        ScriptedClient client;
        client.script.replies = {{200, offer.endpoints, 0, {}}, kMode};
        const bool isCompatible = !offer.path.empty();
        EXPECT_EQ(ShakeHands(client), isCompatible ? "0, mode 1, value " + std::to_string(offer.value) : kIncompatible);
        EXPECT_EQ(client.script.requests.back()[0], "GET " + offer.path + (isCompatible ? "/init flags=0" : "/endpoints flags=0"));
        EXPECT_EQ(client->IsApiVersionAtLeast13(), offer.path == "/3" || offer.path == "/50");
    }
}

TEST(Handshake, WithoutALoggingEndpointOfVersion1IsGood)
{
    ScriptedClient client;
    client.script.replies = {{200, R"({"sync":{"1.0":{"path":"/p"}},"audit":{"2":{"path":"/audit"}}})", 0, {}}, kMode};
    TraceCapture trace;
    EXPECT_EQ(ShakeHands(client), kDone);
    EXPECT_TRUE(trace.Has(EVT_INFO, "Logging not supported on this appliance"));
    EXPECT_EQ(client->PublishSyncStats("x"), 1341U);
}

TEST(Handshake, EndpointsThatCannotBeHadAreAnIncompatibleServer)
{
    const std::pair<ScriptedReply, Texts> cases[] = {
        {{200, R"({"sync":{"2.0":{"path":"/2"}}})", 0, {}}, {}},
        {{200, "{}", 0, {}}, {"Failed to extract endpoints from response"}},
        {{200, std::nullopt, 0, {}}, {"Response memory is NULL!"}},
        {{404, "no", 0, {}}, {"GetHTTPStatus shows failure, code: 404"}},
    };
    const std::string frame(76, '=');
    for (auto [reply, errors] : cases)
    {
        ScriptedClient client;
        client.script.replies = {reply};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client), kIncompatible);
        errors.insert(errors.end(), {frame, "FATAL ERROR: The appliance is not compatible with this version of the client", frame});
        EXPECT_EQ(trace.Messages(EVT_ERROR), errors);
        EXPECT_EQ(client.script.timeouts.size(), 1U) << "timeouts are put back only once the server was asked for its mode";
    }
}

TEST(Handshake, ThatFailedIsMadeAnewAsAWhole)
{
    const struct
    {
        Script::Failure timeouts, connection;
        const char* mode;
        std::string expected, error;
    } cases[] = {
        {{1, 0, 6}, {}, "", "2147942406, mode 99, value 99", "WinHttpSetTimeouts failed, error code: 6"},
        // Where there is no last error the result itself counts.
        {{}, {2, 9, 0}, "", "9, mode 99, value 0", "WinHttpConnection failed to initialise, error code: 9"},
        {{}, {}, R"({"device_token_auth":1})", "12004, mode 99, value 0", "Bad response to Init request!"},
    };
    for (const auto& step : cases)
    {
        SCOPED_TRACE(step.error);
        ScriptedClient client;
        client.script.timeoutsFailure = step.timeouts;
        client.script.connectionFailure = step.connection;
        client.script.replies = {kOffer, {200, step.mode, 0, {}}};
        TraceCapture trace;
        EXPECT_EQ(ShakeHands(client), step.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{step.error});
        const bool isNegotiated = step.timeouts.call == 0;
        EXPECT_EQ(client.script.timeouts.back() == kUsualTimeouts, isNegotiated);
        EXPECT_EQ(client->IsApiVersionAtLeast13(), isNegotiated) << "version and paths stay known";

        client.script = {};
        client.script.replies = {kOffer, kMode};
        EXPECT_EQ(ShakeHands(client), kDone);
        EXPECT_EQ(client.script.requests.size(), 2U);
    }
}

TEST(Handshake, TalksToOneServerWhateverIsSetMeanwhile)
{
    ScriptedClient client;
    client.script.replies = {{200, kOffer.body, 0, [&] { client->SetPort(9); }}, kMode};
    EXPECT_EQ(ShakeHands(client), kDone);
    EXPECT_EQ(client.script.connections.at(1), "server:8080 send=0 receive=0");
}

TEST(Login, RunningOutOfMemoryLeavesATraceAndSendsNoPassword)
{
    ScriptedClient client;
    client.script.throwOnSend = true;
    EXPECT_EQ(ShakeHands(client), "2147500037, mode 99, value 99");
    TraceCapture trace;
    Outputs outputs;
    EXPECT_EQ(LogIn()(client.Api(), outputs), 0x80004005U);
    EXPECT_EQ(client.script.requests.size(), 2U) << "nothing goes out behind a handshake that was cut off";
    const TracedEvent last = trace.EventsOf("CNativeHttp::Login").back();
    EXPECT_EQ(last.message, "[EXCEPTION EXIT]");
    EXPECT_EQ(last.level, 1);
    EXPECT_EQ(last.line, 652);
}

TEST(Register, AsksOnceMoreForADeviceThatIsKnown)
{
    const ScriptedReply known{400, "The user ann has registered the device host", 0, {}};
    const ScriptedReply swapped{400, "has registered the device. The user", 0, {}};
    const ScriptedReply done{204, std::nullopt, 0, {}};
    const ScriptedReply broken{0, std::nullopt, 12030, {}};
    const std::string refused = "GetHTTPStatus shows failure, code: ";
    const struct
    {
        std::deque<ScriptedReply> replies;
        ResultCode expected;
        bool twice;
        std::string error;
        ResultCode second = 0; // what opening the second request results in
    } cases[] = {
        {{done}, 0, false, ""},
        {{known, done}, 0, true, ""},
        {{swapped, done}, 0, true, ""},
        {{known, {500, R"({"errorId":"3"})", 0, {}}}, 20003, true, refused + "500"},
        {{known, known}, 20400, true, refused + "400"},
        {{known, broken}, 12030, true, "GetResponse failed, error code: 12030"},
        {{known, done}, 12018, true, "Failed to initialise WinHttpRequest. Error 0x80072ef2", 0x80072EF2},
        {{known, done}, 0, true, "", 5}, // only a negative result counts
        {{{400, "The user is unknown", 0, {}}}, 20400, false, refused + "400"},
        {{{400, "ann has registered the device", 0, {}}}, 20400, false, refused + "400"},
        {{{409, known.body, 0, {}}}, 20409, false, refused + "409"},
        {{{403, std::nullopt, 0, {}}}, 20403, false, refused + "403"},
    };
    for (const auto& registration : cases)
    {
        SCOPED_TRACE(registration.replies[0].body.value_or("no body") + ": " + registration.error);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = registration.replies;
        client.script.requestFailure = {2, registration.second, 12018};
        TraceCapture trace;
        EXPECT_EQ(client->Register(L"ann", L"host"), registration.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), registration.error.empty() ? Texts() : Texts{registration.error});
        EXPECT_EQ(trace.Has(EVT_INFO, "Request successful, email sent to user"), registration.expected == 0);
        EXPECT_EQ(trace.Has(EVT_INFO, "The user has registered the device previously, sending re-registration request"),
                  registration.twice);
        ASSERT_EQ(client.script.requests.size(), registration.twice ? 2U : 1U);
        if (!registration.twice || registration.expected == 12018)
            continue;
        Script::Steps first = client.script.requests[0];
        first[0] = "POST /sync/registrations/resend flags=0";
        EXPECT_EQ(client.script.requests[1], first) << "the same form";
    }
}

} // namespace
