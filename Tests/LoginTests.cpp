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

std::string TokenOf(ScriptedClient& client)
{
    std::wstring token;
    EXPECT_EQ(client->GetSessionToken(token), 0U);
    return ToNarrow(token);
}

TEST(Login, SendsItsFieldsInOrder)
{
    const struct
    {
        const char* mode; // null: the handshake fails
        VersionNumber version, platform;
        Script::Steps steps;
    } cases[] = {
        {R"({"device_token_auth":false})",
         {},
         {},
         {"POST /sync/sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_id=host", "field device_name=device",
          "last field platform=Windows QDClient", "send"}},
        {R"({"device_token_auth":true})",
         {4, 2},
         {10, 0, 19045, 1},
         {"POST /sync/sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_token=device-token",
          "field device_id=host", "field device_name=device", "field client_version=4.2", "field client_platform_version=10.0.19045.1",
          "last field platform=Windows QDClient", "send"}},
        // A version of major number 0 is none.
        {nullptr,
         {0, 9},
         {11},
         {"POST /sessions flags=0", "field user_id=ann", "field password=p&ss", "field device_token=device-token", "field device_id=host",
          "field device_name=device", "field client_platform_version=11", "last field platform=Windows QDClient", "send"}},
    };
    for (const auto& login : cases)
    {
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

TEST(Login, EndsEachAnswerWithItsCode)
{
    const std::string noToken = "Session token is empty!";
    const struct
    {
        ScriptedReply reply;
        ResultCode expected;
        const char* token;
        bool policy;
        std::vector<std::string> errors;
    } cases[] = {
        {{200, R"({"session_token":"new"})", 0, {}}, 0, "new", false, {}},
        {{200, R"({"session_token":""})", 0, {}}, 0, "", false, {}},
        {{200, R"({"session_token":"new","policy_block":{"a":1}})", 0, {}}, 0, "new", true, {}},
        {{200, R"({"session_token":5,"policy_block":{}})", 0, {}}, 5, "other", true, {noToken}},
        {{200, R"({"note":"policy_block"})", 0, {}}, 5, "other", true, {noToken}},
        {{200, "{}", 0, {}}, 5, "other", false, {noToken}},
        {{401, R"({"errorId":"6","policy_block":{}})", 0, {}}, 20006, "other", false, {"GetHTTPStatus shows failure, code: 401"}},
        {{500, R"({"errorId":7})", 0, {}}, 20500, "other", false, {"GetHTTPStatus shows failure, code: 500"}},
        {{200, std::nullopt, 0, {}}, 8, "other", false, {"Response memory is NULL!"}},
        {{0, std::nullopt, 12029, {}}, 12029, "other", false, {"GetResponse failed, error code: 12029"}},
    };
    for (const auto& login : cases)
    {
        const std::string body = login.reply.body.value_or("");
        SCOPED_TRACE(body + std::to_string(login.expected));
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {login.reply};
        // A refused login is no reason to try again, whoever logged in meanwhile.
        client.script.replies.front().meanwhile = [&client] { client->SetSessionToken(L"other"); };
        TraceCapture trace;
        const LoginResult result = LogIn(client);
        EXPECT_EQ(result.code, login.expected);
        EXPECT_EQ(TokenOf(client), login.token);
        EXPECT_EQ(ToNarrow(result.policy), login.policy ? body : "before");
        EXPECT_EQ(trace.Messages(EVT_ERROR), login.errors);
        EXPECT_EQ(trace.Has(EVT_INFO, "Response contains policy block, processing..."), result.code < 8) << "written in any case";
        EXPECT_FALSE(trace.Mentions("p&ss"));
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
    const TracedEvent last = trace.EventsOf("CNativeHttp::Login").back();
    EXPECT_EQ(last.message, "[EXCEPTION EXIT]");
    EXPECT_EQ(last.level, 1);
    EXPECT_EQ(last.line, 652);
}

TEST(Register, SendsItsFieldsOnceOrTwice)
{
    const auto steps = [](const char* path) {
        return Script::Steps{std::string("POST /sync/registrations") + path + " flags=0",
                             "field user_id=ann",
                             "field device_id=host",
                             "field device_name=device",
                             "last field platform=windows",
                             "send"};
    };
    const ScriptedReply known{400, "The user ann has registered the device host", 0, {}};
    const ScriptedReply done{204, std::nullopt, 0, {}};
    const ScriptedReply broken{0, std::nullopt, 12030, {}};
    const struct
    {
        const char* what;
        std::deque<ScriptedReply> replies;
        ResultCode expected;
        bool twice;
        bool mailed;
    } cases[] = {
        {"new, 200", {{200, "{}", 0, {}}}, 0, false, true},
        {"new, 204 without a body", {done}, 0, false, true},
        {"known", {known, done}, 0, true, true},
        {"known, words in another order", {{400, "has registered the device. The user", 0, {}}, done}, 0, true, true},
        {"known, refused", {known, {500, R"({"errorId":"3"})", 0, {}}}, 20003, true, false},
        {"known, known again", {known, known}, 20400, true, false},
        {"known, broken", {known, broken}, 12030, true, false},
        {"one phrase only", {{400, "The user is unknown", 0, {}}}, 20400, false, false},
        {"another status with the phrases", {{409, known.body, 0, {}}}, 20409, false, false},
        {"refused without a body", {{403, std::nullopt, 0, {}}}, 20403, false, false},
        {"broken", {broken}, 12030, false, false},
    };
    for (const auto& registration : cases)
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

    // Of a second request that cannot be opened only a negative result counts.
    for (const auto& [result, expected, errors] : std::vector<std::tuple<ResultCode, ResultCode, std::vector<std::string>>>{
             {0x80072EF2, 12018, {"Failed to initialise WinHttpRequest. Error 0x80072ef2"}}, {5, 0, {}}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {known, done};
        client.script.requestFailure = {2, result, 12018};
        TraceCapture trace;
        EXPECT_EQ(client->Register(L"ann", L"host"), expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), errors);
    }
}

} // namespace
