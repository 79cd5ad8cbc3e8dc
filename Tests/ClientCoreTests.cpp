// What all operations of the client share: its settings, its codes, its JSON helpers, its trace of replies, its request map.

#include "JsonLibrary.h"
#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

ResponseBuffer Reply(std::string& text)
{
    return {text.data(), text.size()};
}

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
    struct Case
    {
        const char* server;
        const char* message;
        const char* connection;
        const char* flags;
    };
    const Case cases[] = {
        {"https://files.example", "Quendra set to secure", "files.example:443", "flags=8388608"},
        {"HTTPS://files.example", "Quendra set to secure", "files.example:443", "flags=8388608"},
        {"http://files.example", "Quendra set to non-secure", "files.example:443", "flags=0"},
        {"files.example", "Quendra set to non-secure", "files.example:443", "flags=0"},
        {"ftp://a://b", "Quendra set to non-secure", "a://b:443", "flags=0"},
        {"https://host:8443/path/", "Quendra set to secure", "host:8443/path/:443", "flags=8388608"},
        {"https:/", "Quendra set to non-secure", "https:/:443", "flags=0"},
        {"", "Quendra set to non-secure", ":443", "flags=0"},
    };
    for (const Case& server : cases)
    {
        SCOPED_TRACE(server.server);
        Client client;
        TraceCapture trace;
        EXPECT_EQ(client->SetServer(server.server), 0U);
        EXPECT_EQ(client->SetPort(443), 0U);
        EXPECT_TRUE(trace.Has(EVT_INFO, server.message));
        EXPECT_TRUE(trace.Has(EVT_INFO, "Quendra port set to: 443"));
        std::wstring build;
        client->Version(build);
        EXPECT_EQ(client.script.connections.at(0), std::string(server.connection) + " send=0 receive=0");
        EXPECT_EQ(client.script.requests.at(0).at(0), std::string("GET /version ") + server.flags);
    }
    Client client;
    EXPECT_EQ(client->SetServer(nullptr), 87U);
    EXPECT_EQ(client->SetDeviceName(nullptr), 87U);
    EXPECT_EQ(client->SetClientTag(nullptr), 87U);
}

TEST(ClientSettings, AccessorsAreNotTraced)
{
    Client client;
    TraceCapture trace;
    EXPECT_EQ(client->SetClientTag("tag"), 0U);
    EXPECT_EQ(client->GetClientTag(), "tag");
    EXPECT_EQ(client->SetDeviceName(L"other"), 0U);
    EXPECT_EQ(client->ReservedNoOp(), 0U);
    EXPECT_FALSE(client->IsApiVersionAtLeast13());
    EXPECT_EQ(CNativeHttp::AddRevision("?", ""), "");
    EXPECT_TRUE(trace.Events().empty()) << trace;

    EXPECT_EQ(CNativeHttp::AddRevision("?", "12"), "?revision=12");
    EXPECT_EQ(trace.Messages(EVT_INFO), std::vector<std::string>{"Revision: 12"});
    EXPECT_EQ(trace.EventsOf("CNativeHttp::AddRevision").at(1).line, 171);
}

TEST(ClientSettings, ASessionThatCannotBeOpenedIsOnlyTraced)
{
    Script script;
    script.sessionResult = 0x80072EE4;
    TraceCapture trace;
    IQuendraHttpAPI* client = CreateInstanceWithFactory(MakeScriptedTransport(script), L"device");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"WinHttpSession failed to initialise, error code: -2147012892"});
    EXPECT_EQ(trace.EventsOf("CNativeHttp::Create").front().line, 132);
    client->Release();
}

TEST(ClientSettings, ATransportThatMakesNothingEndsInAnError)
{
    struct Nothing final : IWinHttpFactory
    {
        std::shared_ptr<IWinHttpSession> CreateSession() override { return nullptr; }
        std::shared_ptr<IWinHttpConnection> CreateConnection() override { return nullptr; }
        std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override { return nullptr; }
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

    struct NoMemory final : IWinHttpFactory
    {
        std::shared_ptr<IWinHttpSession> CreateSession() override { throw std::bad_alloc(); }
        std::shared_ptr<IWinHttpConnection> CreateConnection() override { return nullptr; }
        std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override { return nullptr; }
    };
    EXPECT_EQ(CreateInstanceWithFactory(std::make_shared<NoMemory>(), L"device"), nullptr);
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
    struct Case
    {
        std::uint32_t status;
        std::string body;
        ResultCode expected;
    };
    Case cases[] = {
        {404, R"({"errorId":"5"})", 20005},
        {404, R"({"errorId":5})", 20404},
        {404, R"({"errorId":"no"})", 20000},
        {404, R"({"errorId":""})", 20000},
        {404, R"({"errorId":" 12x"})", 20012},
        {404, R"({"errorId":"+7"})", 20007},
        {404, R"({"errorId":"+-7"})", 20000},
        {404, R"({"errorId":"-1"})", 19999},
        {404, R"({"errorId":"99999999999999999999"})", 20000U + 0x7FFFFFFFU},
        {404, R"({"errorId":"-99999999999999999999"})", 20000U + 0x80000000U},
        {404, R"({"errorId":"-20000"})", 20404},
        {404, R"({"errorId":null})", 20404},
        {500, "<html>", 20500},
        {0, "", 20000},
    };
    for (Case& refusal : cases)
        EXPECT_EQ(CNativeHttp::MapHttpError(refusal.status, Reply(refusal.body)), refusal.expected) << refusal.body;
    EXPECT_EQ(CNativeHttp::MapHttpError(503, {}), 20503U);
}

TEST(ClientCodes, AnInvalidSessionAsksForARepetitionWhenTheTokenChanged)
{
    Client client;
    client->SetSessionToken(L"current");
    std::string invalid = R"({"errorId":"6"})";
    std::string other = R"({"errorId":"7"})";
    struct Case
    {
        std::uint32_t status;
        std::string* body;
        const wchar_t* startToken;
        ResultCode expected;
    };
    for (const Case& refusal : {Case{401, &invalid, L"current", 20006}, Case{401, &invalid, L"Current", 1237},
                                Case{403, &invalid, L"old", 20006}, Case{401, &other, L"old", 20007}})
        EXPECT_EQ(client->MapHttpErrorWithTokenCheck(refusal.status, Reply(*refusal.body), refusal.startToken), refusal.expected);

    TraceCapture trace;
    EXPECT_EQ(client->CheckForChangedSessionToken(401, L"old", 401), 1237U);
    EXPECT_EQ(trace.Messages(),
              (std::vector<std::string>{"OriginalSession [old] CurrentSession [current]",
                                        "HTTP_STATUS_DENIED received but session token has changed. Retry required with new token"}));
}

TEST(JsonHelpers, ReadMembersOfTheirTypeOnly)
{
    std::string text = R"({"s":"x","e":"","t":"true","f":"false","T":"TRUE","one":"1","n":1,"b":true,"c":false,"o":{},"z":null})";
    const ResponseBuffer reply = Reply(text);
    const auto readString = [&](const char* key) {
        std::string value = "untouched";
        return CNativeHttp::GetJSONStringFromResponse(reply, key, value) ? value : "no:" + value;
    };
    const auto readBool = [&](const char* key) {
        bool value = true;
        if (!CNativeHttp::GetJSONBoolFromResponse(reply, key, value))
            return std::string(value ? "no" : "touched");
        return std::string(value ? "true" : "false");
    };
    EXPECT_EQ(readString("s"), "x");
    EXPECT_EQ(readString("e"), "");
    for (const char* key : {"n", "b", "o", "z", "missing"})
        EXPECT_EQ(readString(key), "no:untouched") << key;
    EXPECT_EQ(readBool("t"), "true");
    EXPECT_EQ(readBool("f"), "false");
    EXPECT_EQ(readBool("b"), "true");
    EXPECT_EQ(readBool("c"), "false");
    for (const char* key : {"T", "one", "n", "s", "o", "z", "missing"})
        EXPECT_EQ(readBool(key), "no") << key;
    EXPECT_EQ(CNativeHttp::GetJSONValueFromResponse(reply, "n").asInt(), 1);
    EXPECT_TRUE(CNativeHttp::GetJSONValueFromResponse(reply, "missing").isNull());
}

TEST(JsonHelpers, SurviveEveryBody)
{
    for (std::string text : {std::string("[1]"), std::string("5"), std::string("\"text\""), std::string("{\"a\""), std::string(10000, '['),
                             std::string("{\"a\":\"\xff\xfe\"}"), std::string("\0{}", 3), std::string()})
    {
        TraceCapture trace;
        std::string value;
        bool flag = false;
        EXPECT_FALSE(CNativeHttp::GetJSONStringFromResponse(Reply(text), "missing", value));
        EXPECT_FALSE(CNativeHttp::GetJSONBoolFromResponse(Reply(text), "missing", flag));
        EXPECT_TRUE(CNativeHttp::GetJSONValueFromResponse(Reply(text), "missing").isNull());
        CNativeHttp::LogResponse(Reply(text));
        for (const std::string& message : trace.Messages(EVT_ERROR))
            EXPECT_EQ(message.rfind("JSON library has thrown a runtime_error exception (", 0), 0U) << message;
    }
    std::string value;
    EXPECT_FALSE(CNativeHttp::GetJSONStringFromResponse({}, "key", value));
}

TEST(RepliesInTheTrace, AreIndentedLineByLine)
{
    TraceCapture trace;
    std::string json = R"({"a":[1,{"b":"\u00e9"}],"c":"100%s"})";
    CNativeHttp::LogResponse(Reply(json));
    const std::vector<std::string> lines = trace.Messages(EVT_INFO);
    ASSERT_GT(lines.size(), 5U);
    EXPECT_EQ(lines.front(), "HTTP Response (" + std::to_string(json.size()) + " bytes):");
    EXPECT_EQ(lines[1], "{");
    EXPECT_EQ(lines.back(), "}");
    EXPECT_TRUE(trace.Has(EVT_INFO, "   \"c\" : \"100%s\""));
    for (const std::string& line : lines)
        EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos);

    trace.Clear();
    std::string html = "<html>";
    CNativeHttp::LogResponse(Reply(html));
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

TEST(RequestMap, ClosingAnUnknownRequestOnlyTracesTheCall)
{
    Client client;
    TraceCapture trace;
    EXPECT_EQ(client->CloseRequestHandle(L"/nothing"), 0U);
    EXPECT_TRUE(trace.Messages().empty());
    EXPECT_EQ(trace.Events().size(), 2U);
}

} // namespace
