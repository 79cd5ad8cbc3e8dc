// What all operations of the client share: its settings, its codes, its JSON helpers, its trace of replies, its request map.

#include "ParsingSupport.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

class Client
{
public:
    CNativeHttp* operator->() { return &m_client; }

    Script script;

private:
    CNativeHttp m_client{MakeScriptedTransport(script), L"device"};
};

TEST(ClientSettings, ServerNamesAreTakenApartAtTheSchemeOnly)
{
    const std::string secure = "Quendra set to secure";
    const std::string plain = "Quendra set to non-secure";
    const struct
    {
        const char* server;
        const char* name;
        std::string message;
    } cases[] = {
        {"https://files.example", "files.example", secure},
        {"HTTPS://files.example", "files.example", secure},
        {"http://files.example", "files.example", plain},
        {"files.example", "files.example", plain},
        {"ftp://a://b", "a://b", plain},
        {"https://host:8443/path/", "host:8443/path/", secure},
        {"https:/", "https:/", plain},
        {"", "", plain},
    };
    for (const auto& server : cases)
    {
        SCOPED_TRACE(server.server);
        Client client;
        TraceCapture trace;
        EXPECT_EQ(client->SetServer(server.server), 0U);
        EXPECT_EQ(client->SetPort(443), 0U);
        EXPECT_EQ(trace.Messages(EVT_INFO), (std::vector<std::string>{server.message, std::string("Quendra server set to: ") + server.name,
                                                                      "Quendra port set to: 443"}));
        std::wstring build;
        client->Version(build);
        EXPECT_EQ(client.script.connections.at(0), std::string(server.name) + ":443 send=0 receive=0");
        EXPECT_EQ(client.script.requests.at(0).at(0), server.message == secure ? "GET /version flags=8388608" : "GET /version flags=0");
    }
}

TEST(ClientSettings, AccessorsAreNotTraced)
{
    Client client;
    TraceCapture trace;
    EXPECT_EQ(client->SetServer(nullptr), 87U);
    EXPECT_EQ(client->SetDeviceName(nullptr), 87U);
    EXPECT_EQ(client->SetClientTag(nullptr), 87U);
    trace.Clear();
    EXPECT_EQ(client->SetClientTag("tag"), 0U);
    EXPECT_EQ(client->GetClientTag(), "tag");
    EXPECT_EQ(client->SetDeviceName(L"other"), 0U);
    EXPECT_EQ(client->ReservedNoOp(), 0U);
    EXPECT_FALSE(client->IsApiVersionAtLeast13());
    EXPECT_EQ(CNativeHttp::AddRevision("?", ""), "");
    EXPECT_TRUE(trace.Events().empty()) << trace;
    EXPECT_EQ(CNativeHttp::AddRevision("?", "12"), "?revision=12");
    EXPECT_EQ(trace.Messages(), std::vector<std::string>{"Revision: 12"});
}

TEST(ClientSettings, ASessionThatCannotBeOpenedIsOnlyTraced)
{
    Script script;
    script.sessionResult = 0x80072EE4;
    TraceCapture trace;
    const CNativeHttp client(MakeScriptedTransport(script), L"device");
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"WinHttpSession failed to initialise, error code: -2147012892"});
}

// People who filter events know these functions by their lines.
TEST(ClientSettings, FunctionsAreIdentifiedByTheirLines)
{
    TraceCapture trace;
    ScriptedClient client;
    client.Negotiate();
    std::wstring text;
    std::uint32_t value = 0;
    client->Version(text);
    client->Register(L"ann", L"id");
    client->Login(L"ann", L"p", L"", L"", text, value, {}, {});
    client->SetSessionToken(L"token");
    client->GetSessionToken(text);
    static_cast<void>(CNativeHttp::AddRevision("?", "1"));
    const std::pair<const char*, int> lines[] = {
        {"Create", 132},          {"AddRevision", 171},     {"Version", 456}, {"GetEndpoints", 534}, {"GetEndpointsFromResponse", 602},
        {"GetSessionToken", 624}, {"SetSessionToken", 636}, {"Login", 652},   {"Register", 782}};
    for (const auto& [function, line] : lines)
    {
        const std::vector<TracedEvent> events = trace.EventsOf(std::string("CNativeHttp::") + function);
        ASSERT_FALSE(events.empty()) << function;
        EXPECT_TRUE(events.front().isEntry && events.back().isExit) << function;
        EXPECT_EQ(events.front().line, line);
        EXPECT_EQ(events.back().line, line);
    }
}

TEST(ClientSettings, ATransportThatMakesNothingEndsInAnError)
{
    struct Nothing final : IWinHttpFactory
    {
        std::shared_ptr<IWinHttpSession> CreateSession() override { return hasMemory ? nullptr : throw std::bad_alloc(); }
        std::shared_ptr<IWinHttpConnection> CreateConnection() override { return nullptr; }
        std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override { return nullptr; }
        bool hasMemory = true;
    };
    CNativeHttp client(std::make_shared<Nothing>(), L"device");
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    std::wstring text;
    EXPECT_EQ(client.Init(mode, value), 0x80070006U);
    EXPECT_EQ(client.Version(text), 6U);
    EXPECT_EQ(client.SetSessionToken(L"x"), 6U);
    EXPECT_EQ(client.GetSessionToken(text), 0U);
    EXPECT_EQ(client.Register(L"ann", L"id"), 6U);
    EXPECT_EQ(CreateInstanceWithFactory(nullptr, L"device"), nullptr);
    const auto factory = std::make_shared<Nothing>();
    factory->hasMemory = false;
    EXPECT_EQ(CreateInstanceWithFactory(factory, L"device"), nullptr);
}

TEST(ClientSettings, TheBasePathHoldsTheTokenForApi10Only)
{
    ScriptedClient client;
    auto& core = dynamic_cast<CNativeHttp&>(client.Api());
    core.SetSessionToken(L"t/1");
    EXPECT_TRUE(core.GetApiBasePath().empty());
    client.Negotiate("1.0");
    EXPECT_TRUE(core.GetApiBasePath() == L"/api/t/1");
    ScriptedClient newer;
    newer.Negotiate("1.1");
    EXPECT_TRUE(dynamic_cast<CNativeHttp&>(newer.Api()).GetApiBasePath() == L"/sync");
}

TEST(ClientCodes, RefusalsMapToTheirErrorIdOrTheirStatus)
{
    struct
    {
        std::uint32_t status;
        std::string body;
        ResultCode expected;
    } cases[] = {
        {404, R"({"errorId":"5"})", 20005},
        {404, R"({"errorId":5})", 20404},
        {404, R"({"errorId":"no"})", 20000},
        {404, R"({"errorId":" 12x"})", 20012},
        {404, R"({"errorId":"+7"})", 20007},
        {404, R"({"errorId":"+-7"})", 20000},
        {404, R"({"errorId":"-1"})", 19999},
        {404, R"({"errorId":"99999999999999999999"})", 20000U + 0x7FFFFFFFU},
        {404, R"({"errorId":"-99999999999999999999"})", 20000U + 0x80000000U},
        {404, R"({"errorId":"-20000"})", 20404},
        {500, "<html>", 20500},
        {0, "", 20000},
    };
    for (auto& refusal : cases)
        EXPECT_EQ(CNativeHttp::MapHttpError(refusal.status, AsReply(refusal.body)), refusal.expected) << refusal.body;
    EXPECT_EQ(CNativeHttp::MapHttpError(503, {}), 20503U);
}

TEST(ClientCodes, AnInvalidSessionAsksForARepetitionWhenTheTokenChanged)
{
    Client client;
    client->SetSessionToken(L"current");
    std::string invalid = R"({"errorId":"6"})";
    std::string other = R"({"errorId":"7"})";
    TraceCapture trace;
    EXPECT_EQ(client->MapHttpErrorWithTokenCheck(401, AsReply(invalid), L"current"), 20006U);
    EXPECT_EQ(client->MapHttpErrorWithTokenCheck(403, AsReply(invalid), L"old"), 20006U);
    EXPECT_EQ(client->MapHttpErrorWithTokenCheck(401, AsReply(other), L"old"), 20007U);
    EXPECT_EQ(client->MapHttpErrorWithTokenCheck(401, AsReply(invalid), L"Current"), 1237U);
    EXPECT_TRUE(trace.Has(EVT_INFO, "OriginalSession [Current] CurrentSession [current]")) << trace;
    EXPECT_TRUE(trace.Mentions("HTTP_STATUS_DENIED received but session token has changed. Retry required with new token"));
}

TEST(JsonHelpers, ReadMembersOfTheirTypeOnly)
{
    std::string text = R"({"s":"x","e":"","t":"true","f":"false","T":"TRUE","one":"1","n":1,"b":true,"c":false,"o":{},"z":null})";
    const auto readString = [&](const char* key) {
        std::string value = "untouched";
        return (CNativeHttp::GetJSONStringFromResponse(AsReply(text), key, value) ? "" : "no:") + value;
    };
    const auto readBool = [&](const char* key) {
        bool value = true;
        const bool found = CNativeHttp::GetJSONBoolFromResponse(AsReply(text), key, value);
        return std::string(found ? "" : "no:") + (value ? "true" : "false");
    };
    const std::string noText = "no:untouched";
    const std::string noTruth = "no:true";
    const struct
    {
        const char* key;
        std::string text;
        std::string truth;
    } cases[] = {{"s", "x", noTruth},    {"e", "", noTruth},     {"t", "true", "true"},  {"f", "false", "false"},
                 {"T", "TRUE", noTruth}, {"one", "1", noTruth},  {"n", noText, noTruth}, {"b", noText, "true"},
                 {"c", noText, "false"}, {"o", noText, noTruth}, {"z", noText, noTruth}, {"missing", noText, noTruth}};
    for (const auto& each : cases)
    {
        EXPECT_EQ(readString(each.key), each.text) << each.key;
        EXPECT_EQ(readBool(each.key), each.truth) << each.key;
    }
    EXPECT_EQ(CNativeHttp::GetJSONValueFromResponse(AsReply(text), "n").asInt(), 1);
    EXPECT_TRUE(CNativeHttp::GetJSONValueFromResponse(AsReply(text), "missing").isNull());
}

TEST(JsonHelpers, SurviveEveryBody)
{
    for (std::string text : {std::string("[1]"), std::string("5"), std::string("{\"a\""), std::string(10000, '['),
                             std::string("{\"a\":\"\xff\xfe\"}"), std::string("\0{}", 3), std::string()})
    {
        TraceCapture trace;
        std::string value;
        bool flag = false;
        EXPECT_FALSE(CNativeHttp::GetJSONStringFromResponse(AsReply(text), "missing", value));
        EXPECT_FALSE(CNativeHttp::GetJSONBoolFromResponse(AsReply(text), "missing", flag));
        EXPECT_TRUE(CNativeHttp::GetJSONValueFromResponse(AsReply(text), "missing").isNull());
        CNativeHttp::LogResponse(AsReply(text));
        for (const std::string& message : trace.Messages(EVT_ERROR))
            EXPECT_TRUE(message.starts_with("JSON library has thrown a runtime_error exception (")) << message;
    }
    std::string value;
    EXPECT_FALSE(CNativeHttp::GetJSONStringFromResponse({}, "key", value));
}

TEST(RepliesInTheTrace, AreIndentedLineByLine)
{
    TraceCapture trace;
    std::string json = R"({"a":[1,{"b":2}],"c":"100%s"})";
    CNativeHttp::LogResponse(AsReply(json));
    EXPECT_EQ(trace.Messages(EVT_INFO), (std::vector<std::string>{"HTTP Response (29 bytes):", "{", "   \"a\" : [", "      1,", "      {",
                                                                  "         \"b\" : 2", "      }", "   ],", "   \"c\" : \"100%s\"", "}"}));
    trace.Clear();
    std::string html = "<html>";
    CNativeHttp::LogResponse(AsReply(html));
    EXPECT_EQ(trace.Messages(EVT_INFO), std::vector<std::string>{"HTTP Response (6 bytes)"});
}

TEST(RequestMap, ANewerRequestReplacesTheOlderAndOutlivesIt)
{
    Script script;
    const auto factory = MakeScriptedTransport(script);
    const auto first = factory->CreateRequest(nullptr);
    const auto second = factory->CreateRequest(nullptr);
    CNativeHttp::RequestHandleMap requests;
    std::mutex lock;
    TraceCapture trace;
    {
        auto older = std::make_unique<CNativeHttp::RequestHandleTracker>(requests, lock, first, L"/a", L"token");
        const CNativeHttp::RequestHandleTracker newer(requests, lock, second, L"/a", L"token");
        older.reset();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests.begin()->second, second);
        EXPECT_TRUE(newer.SessionToken() == L"token");
    }
    EXPECT_TRUE(requests.empty());
    const std::vector<TracedEvent> events = trace.Events();
    ASSERT_EQ(events.size(), 8U);
    EXPECT_EQ(events.front().line, 227);
    EXPECT_EQ(events.back().line, 235);
}

} // namespace
