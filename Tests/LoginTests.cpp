// Login, registration and the session token, over a scripted transport.

#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

namespace
{

struct LoginResult
{
    ResultCode code = 0;
    std::wstring policy = L"before";
    std::uint32_t value = 0;
};

LoginResult LogIn(ScriptedClient& client, const VersionNumber& version = {}, const VersionNumber& platform = {})
{
    LoginResult result;
    result.code = client->Login(L"ann", L"p&ss", L"device-token", L"host", result.policy, result.value, version, platform);
    return result;
}

std::wstring TokenOf(ScriptedClient& client)
{
    std::wstring token;
    EXPECT_EQ(client->GetSessionToken(token), 0U);
    return token;
}

TEST(Login, SendsItsFieldsInOrder)
{
    struct Case
    {
        const char* what;
        const char* mode; // null: the handshake fails
        VersionNumber version;
        VersionNumber platform;
        Script::Steps steps;
    };
    const Case cases[] = {
        {"legacy",
         R"({"device_token_auth":false})",
         {},
         {},
         {"POST /sync/sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_id=host", "field device_name=device",
          "last field platform=Windows QDClient", "send"}},
        {"device token",
         R"({"device_token_auth":true})",
         {4, 2},
         {10, 0, 19045, 1},
         {"POST /sync/sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_token=device-token",
          "field device_id=host", "field device_name=device", "field client_version=4.2", "field client_platform_version=10.0.19045.1",
          "last field platform=Windows QDClient", "send"}},
        {"no handshake, major version 0",
         nullptr,
         {0, 9},
         {11},
         {"POST /sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_token=device-token", "field device_id=host",
          "field device_name=device", "field client_platform_version=11", "last field platform=Windows QDClient", "send"}},
    };
    for (const Case& login : cases)
    {
        SCOPED_TRACE(login.what);
        ScriptedClient client;
        if (login.mode != nullptr)
            client.Negotiate("1.3", login.mode);
        else
            client.script.replies = {{500, "", 0, {}}};
        client.script.replies.push_back({200, R"({"session_token":"t"})", 0, {}});
        EXPECT_EQ(LogIn(client, login.version, login.platform).code, 0U);
        EXPECT_EQ(client.script.requests.back(), login.steps);
    }
}

TEST(Login, KeepsTheTokenAndShowsThePolicy)
{
    struct Case
    {
        const char* body;
        ResultCode expected;
        std::wstring token;
        bool policy;
    };
    const Case cases[] = {
        {R"({"session_token":"new"})", 0, L"new", false},
        {R"({"session_token":""})", 0, L"", false},
        {R"({"session_token":"new","policy_block":{"a":1}})", 0, L"new", true},
        {R"({"session_token":5,"policy_block":{}})", 5, L"old", true},
        {R"({"note":"policy_block"})", 5, L"old", true},
        {R"({})", 5, L"old", false},
        {R"([])", 5, L"old", false},
        {"no JSON, policy_block", 5, L"old", true},
    };
    for (const Case& login : cases)
    {
        SCOPED_TRACE(login.body);
        ScriptedClient client;
        client.Negotiate();
        client->SetSessionToken(L"old");
        client.script.replies = {{200, login.body, 0, {}}};
        TraceCapture trace;
        const LoginResult result = LogIn(client);
        EXPECT_EQ(result.code, login.expected);
        EXPECT_TRUE(TokenOf(client) == login.token);
        EXPECT_EQ(ToNarrow(result.policy), login.policy ? login.body : "before");
        EXPECT_TRUE(trace.Has(EVT_INFO, "Response contains policy block, processing...")) << "written in any case";
        EXPECT_EQ(trace.Has(EVT_ERROR, "Session token is empty!"), login.expected == 5);
        EXPECT_FALSE(trace.Mentions("p&ss"));
    }
}

TEST(Login, EndsEachFailureWithItsCode)
{
    struct Case
    {
        ScriptedReply reply;
        ResultCode expected;
        const char* message;
    };
    const Case cases[] = {
        {{401, R"({"errorId":"6"})", 0, {}}, 20006, "GetHTTPStatus shows failure, code: 401"},
        {{401, "", 0, {}}, 20401, "GetHTTPStatus shows failure, code: 401"},
        {{500, R"({"errorId":7})", 0, {}}, 20500, "GetHTTPStatus shows failure, code: 500"},
        {{200, std::nullopt, 0, {}}, 8, "Response memory is NULL!"},
        {{0, std::nullopt, 12029, {}}, 12029, "GetResponse failed, error code: 12029"},
    };
    for (const Case& login : cases)
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {login.reply};
        // A refused login is no reason to try again, whoever logged in meanwhile.
        client.script.replies.front().meanwhile = [&client] { client->SetSessionToken(L"other"); };
        TraceCapture trace;
        EXPECT_EQ(LogIn(client).code, login.expected);
        EXPECT_TRUE(trace.Has(EVT_ERROR, login.message)) << trace;
    }
}

TEST(Login, SendsNothingWhenAFieldCannotBeSent)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.failingStep = "field device_id";
    client.script.failingStepResult = 122;
    EXPECT_EQ(LogIn(client).code, 122U);
    EXPECT_EQ(client.script.requests.back().back(), "field device_id=host");
}

TEST(Login, RunningOutOfMemoryLeavesATraceAndNothingElse)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.throwOnSend = true;
    TraceCapture trace;
    EXPECT_EQ(LogIn(client).code, 0x80004005U);
    const std::vector<TracedEvent> events = trace.EventsOf("CNativeHttp::Login");
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front().line, 652);
    EXPECT_EQ(events.back().message, "[EXCEPTION EXIT]");
    EXPECT_EQ(events.back().level, 1);
    EXPECT_EQ(events.back().line, 652);
}

TEST(Register, SendsItsFieldsOnceOrTwice)
{
    const Script::Steps fields = {"field user_id=ann", "field device_id=host", "field device_name=device", "last field platform=windows",
                                  "send"};
    const auto steps = [&](const char* path) {
        Script::Steps all = {std::string("POST /sync/registrations") + path + " flags=0"};
        all.insert(all.end(), fields.begin(), fields.end());
        return all;
    };
    const std::string known = "The user ann has registered the device host";
    struct Case
    {
        const char* what;
        std::deque<ScriptedReply> replies;
        ResultCode expected;
        bool twice;
        bool mailed;
    };
    const Case cases[] = {
        {"new, 200", {{200, "{}", 0, {}}}, 0, false, true},
        {"new, 204 without a body", {{204, std::nullopt, 0, {}}}, 0, false, true},
        {"known", {{400, known, 0, {}}, {204, std::nullopt, 0, {}}}, 0, true, true},
        {"known, words in another order", {{400, "has registered the device. The user", 0, {}}, {200, "", 0, {}}}, 0, true, true},
        {"known, refused", {{400, known, 0, {}}, {500, R"({"errorId":"3"})", 0, {}}}, 20003, true, false},
        {"known, known again", {{400, known, 0, {}}, {400, known, 0, {}}}, 20400, true, false},
        {"known, broken", {{400, known, 0, {}}, {0, std::nullopt, 12030, {}}}, 12030, true, false},
        {"one phrase only", {{400, "The user is unknown", 0, {}}}, 20400, false, false},
        {"another status with the phrases", {{409, known, 0, {}}}, 20409, false, false},
        {"refused without a body", {{403, std::nullopt, 0, {}}}, 20403, false, false},
        {"broken", {{0, std::nullopt, 12030, {}}}, 12030, false, false},
    };
    for (const Case& registration : cases)
    {
        SCOPED_TRACE(registration.what);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = registration.replies;
        TraceCapture trace;
        EXPECT_EQ(client->Register(L"ann", L"host"), registration.expected);
        std::vector<Script::Steps> expected = {steps("")};
        if (registration.twice)
            expected.push_back(steps("/resend"));
        EXPECT_EQ(client.script.requests, expected);
        EXPECT_EQ(trace.Has(EVT_INFO, "Request successful, email sent to user"), registration.mailed);
        EXPECT_EQ(trace.Has(EVT_INFO, "The user has registered the device previously, sending re-registration request"),
                  registration.twice);
    }
}

TEST(Register, ReportsAResendThatCannotBeOpened)
{
    struct Case
    {
        ResultCode result;
        ResultCode expected;
        std::vector<std::string> errors;
    };
    for (const Case& resend : {Case{0x80072EF2, 12018, {"Failed to initialise WinHttpRequest. Error 0x80072ef2"}}, Case{5, 0, {}}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{400, "The user has registered the device", 0, {}}, {204, std::nullopt, 0, {}}};
        client.script.requestFailure = {2, resend.result, 12018};
        TraceCapture trace;
        EXPECT_EQ(client->Register(L"ann", L"host"), resend.expected) << "only a negative result counts";
        EXPECT_EQ(trace.Messages(EVT_ERROR), resend.errors);
    }
}

TEST(SessionToken, IsReadAndReplacedWithoutARequest)
{
    ScriptedClient client;
    TraceCapture trace;
    EXPECT_EQ(client->SetSessionToken(L"\x43f \x20ac"), 0U);
    EXPECT_TRUE(TokenOf(client) == L"\x43f \x20ac");
    EXPECT_TRUE(client.script.requests.empty());
    EXPECT_EQ(trace.EventsOf("CNativeHttp::SetSessionToken").front().line, 636);
    EXPECT_EQ(trace.EventsOf("CNativeHttp::GetSessionToken").front().line, 624);
}

} // namespace
