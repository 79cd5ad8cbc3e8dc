// Handshake, login and registration, over scripted platform calls.

#include "CaseFile.h"
#include "JsonText.h"
#include "Operations.h"
#include "ScriptedClient.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

namespace
{

using Texts = std::vector<std::string>;

const WinHttpScript::Reply kOffer{200, R"({"sync":{"1.3":{"path":"/p"}}})", 0, {}};
const WinHttpScript::Reply kMode{200, R"({"device_token_auth":false})", 0, {}};
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
    g_script.replies = {{200, R"({"sync":{"1.2":{"path":"/sync/12","tos":7}},"audit":{"1":{},"2":{}}})", 0, {}},
                        {200, R"({"device_token_auth":"true"})", 0, {}}};
    TraceCapture trace;
    EXPECT_EQ(ShakeHands(client), "0, mode 2, value 1");
    EXPECT_EQ(ShakeHands(client), "0, mode 2, value 1") << "kept";
    EXPECT_EQ(g_script.requests, (Texts{"GET /endpoints flags=8388608", "GET /sync/12/init flags=8388608"}));
    EXPECT_EQ(g_script.connections, Texts(2, "server:8080"));
    EXPECT_EQ(g_script.timeouts.front(), (std::vector<int>{60000, 30000, 30000, 30000}));
    EXPECT_EQ(g_script.timeouts.back(), kUsualTimeouts);
    for (const char* message : {"Server: server, Port: 8080", "Extracted 1 QD endpoints from response and 2 logging endpoints",
                                "Found logging API version 1.0", "Found endpoint 1.2 compatible with 1.1, path=/sync/12, TOS=7",
                                "Server mode is DEVICE_TOKEN_AUTH", "Returning cached server mode 2"})
        EXPECT_EQ(trace.CountOf(EVT_INFO, message), 1U) << message;
}

TEST(Handshake, TakesTheTopOfTheFirstRunOfVersions)
{
    const auto show = [](const Json::Value& given) {
        ScriptedClient client;
        g_script.replies = {{200, given[0].isString() ? given[0].asString() : JsonLine(given[0]), 0, {}}, kMode};
        const TraceCapture trace;
        std::string shown = ShakeHands(client);
        EXPECT_FALSE(trace.Mentions("Logging not supported")) << "of a server that offers none nothing is told";
        const std::string path = g_script.requests.back();
        EXPECT_EQ(client->IsApiVersionAtLeast13(), path.starts_with("GET /3/") || path.starts_with("GET /50/"));
        return shown + ", " + path + (trace.Has(EVT_ERROR, "Failed to extract endpoints from response") ? ", not read" : "");
    };
    Json::Value groups;
    groups["endpoints"] = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Endpoints.json");
    ExpectCases(groups, {{"endpoints", show}});
}

TEST(Handshake, WithoutALoggingEndpointOfVersion1IsGood)
{
    ScriptedClient client;
    g_script.replies = {{200, R"({"sync":{"1.0":{"path":"/p"}},"audit":{"2":{"path":"/audit"}}})", 0, {}}, kMode};
    TraceCapture trace;
    EXPECT_EQ(ShakeHands(client), kDone);
    EXPECT_TRUE(trace.Has(EVT_INFO, "Logging not supported on this appliance"));
    EXPECT_EQ(client->PublishSyncStats("x"), Result::ServerDisabled);
}

TEST(Handshake, ThatFailedIsMadeAnewAsAWhole)
{
    ScriptedClient client;
    TraceCapture trace;
    const auto attempt = [&](const std::string& mode) {
        g_script.replies = {kOffer, {200, mode, 0, {}}};
        const std::string result = ShakeHands(client);
        EXPECT_EQ(g_script.timeouts.back() == kUsualTimeouts, g_script.requests.size() != 0) << "put back";
        g_script = {};
        return result;
    };
    g_script.Fail("WinHttpSetTimeouts", 6);
    EXPECT_EQ(attempt(""), "2147942406, mode 99, value 99");
    EXPECT_FALSE(client->IsApiVersionAtLeast13());
    g_script.foreign = {"connect", 2, 9, 0};
    EXPECT_EQ(attempt(""), "9, mode 99, value 0") << "without a last error the result itself counts";
    EXPECT_TRUE(client->IsApiVersionAtLeast13()) << "version and paths stay known";
    EXPECT_EQ(attempt(R"({"device_token_auth":1})"), "12004, mode 99, value 0");
    EXPECT_EQ(attempt(kMode.body), kDone);
    EXPECT_EQ(trace.Messages(EVT_ERROR), (Texts{"WinHttpSetTimeouts failed, error code: 6",
                                                "WinHttpConnection failed to initialise, error code: 9", "Bad response to Init request!"}));
}

TEST(Handshake, KeepsTheLoggingEndpointThatAnotherOneFinds)
{
    ScriptedClient client;
    g_script.replies = {{200, "", 0,
                         [&] {
        g_script.replies = {{200, R"({"sync":{"1.3":{"path":"/p"}},"audit":{"1":{"path":"/audit"}}})", 0, {}}, kMode, kMode};
        EXPECT_EQ(ShakeHands(client), kDone);
        g_script.pieces = {{static_cast<DWORD>(kOffer.body.size()), kOffer.body, 0, 0}};
                         }}};
    EXPECT_EQ(ShakeHands(client), kDone);
    EXPECT_EQ(client->PublishSyncStats("x"), 0U);
}

TEST(Handshake, TalksToOneServerWhateverIsSetMeanwhile)
{
    ScriptedClient client;
    g_script.replies = {{200, kOffer.body, 0, [&] { client->SetPort(9); }}, kMode};
    EXPECT_EQ(ShakeHands(client), kDone);
    EXPECT_EQ(g_script.connections.at(1), "server:8080");
}

// Registers a device. The replies are statuses with bodies; the second request is opened with a result.
std::string ShowRegistration(const Json::Value& given)
{
    ScriptedClient client;
    client.Negotiate();
    for (const Json::Value& reply : given[0])
        g_script.replies.push_back({reply[0].asUInt(), reply[1].asString(), reply[2].asUInt(), {}});
    g_script.foreign = {"open", 2, given[1].asUInt(), 12018};
    const TraceCapture trace;
    const ResultCode code = client->Register(L"ann", L"host");
    EXPECT_EQ(trace.Has(EVT_INFO, "Request successful, email sent to user"), code == 0);
    const std::string again = "The user has registered the device previously, sending re-registration request";
    EXPECT_EQ(trace.CountOf(EVT_INFO, again), g_script.requests.size() - 1);
    const std::size_t half = g_script.body.size() / 2;
    const bool isSame = g_script.requests.back() == "POST /sync/registrations/resend flags=0" &&
                        g_script.body.substr(0, half) == g_script.body.substr(half);
    std::string shown = std::to_string(code) + ", " + std::to_string(g_script.requests.size()) + (isSame ? " alike" : "");
    for (const std::string& message : trace.Messages(EVT_ERROR))
        shown += "; " + message;
    return shown;
}

TEST(Register, AsksOnceMoreForADeviceThatIsKnown)
{
    Json::Value groups;
    groups["registrations"] = ReadCaseFile("Registrations.json");
    ExpectCases(groups, {{"registrations", ShowRegistration}});
}

} // namespace
