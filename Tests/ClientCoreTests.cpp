// What all operations share: settings, codes, JSON helpers, the trace of replies, the request map.

#include "Operations.h"
#include "Operations/ServerPaths.h"
#include "Replies/FeedParsing.h"
#include "Replies/JsonLibrary.h"
#include "Replies/JsonReplies.h"
#include "RequestCycle/Judgement.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"

#include "Platform/Platform.h"
#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

namespace
{

using Texts = std::vector<std::string>;

TEST(ClientSettings, ServerNamesAreTakenApartAtTheSchemeOnly)
{
    // What is set, the name that it holds, and whether it is secure.
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"https://files.example", "files.example", true},
        {"HTTPS://host:8443/path/", "host:8443/path/", true},
        {"http://files.example", "files.example", false},
        {"files.example", "files.example", false},
        {"ftp://a://b", "a://b", false},
        {"https:/", "https:/", false},
        {"", "", false},
    };
    for (const auto& [server, name, isSecure] : cases)
    {
        SCOPED_TRACE(server);
        ScriptedClient client;
        TraceCapture trace;
        EXPECT_EQ(client->SetServer(server), 0U);
        EXPECT_EQ(client->SetPort(443), 0U);
        EXPECT_EQ(trace.Messages(EVT_INFO), (Texts{isSecure ? "Quendra set to secure" : "Quendra set to non-secure",
                                                   "Quendra server set to: " + name, "Quendra port set to: 443"}));
        std::wstring build;
        static_cast<void>(client->Version(build));
        EXPECT_EQ(client.script.connections.at(0), name + ":443 send=0 receive=0");
        EXPECT_EQ(client.script.requests.at(0).at(0), isSecure ? "GET /version flags=8388608" : "GET /version flags=0");
    }
}

TEST(ClientSettings, AccessorsAreNotTraced)
{
    ScriptedClient client;
    EXPECT_EQ(client->SetServer(nullptr), Result::InvalidParameter);
    TraceCapture trace;
    EXPECT_EQ(client->SetDeviceName(nullptr), Result::InvalidParameter);
    EXPECT_EQ(client->SetClientTag(nullptr), Result::InvalidParameter);
    EXPECT_EQ(client->SetClientTag("tag"), 0U);
    EXPECT_EQ(dynamic_cast<CNativeHttp&>(client.Api()).GetClientTag(), "tag");
    EXPECT_EQ(client->SetDeviceName(L"other"), 0U);
    EXPECT_EQ(AddRevision("?", ""), "");
    EXPECT_TRUE(trace.Events().empty()) << trace;
    static_cast<void>(client->Register(L"ann", L"host"));
    EXPECT_EQ(client.script.requests.at(0).at(3), "field device_name=other");
}

TEST(ClientSettings, ASessionThatCannotBeOpenedIsOnlyTraced)
{
    Script script;
    script.sessionResult = 0x80072EE4;
    TraceCapture trace;
    const CNativeHttp client(MakeScriptedTransport(script), L"device");
    EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{"WinHttpSession failed to initialise, error code: -2147012892"});
}

// Users filter events by these line numbers.
TEST(ClientSettings, FunctionsAreIdentifiedByTheirLines)
{
    TraceCapture trace;
    ScriptedClient client;
    client.Negotiate("1.0");
    std::wstring text;
    std::uint32_t value = 0;
    static_cast<void>(client->Version(text));
    static_cast<void>(client->Register(L"ann", L"id"));
    static_cast<void>(client->Login(L"ann", L"p", L"", L"", text, value, {}, {}));
    client->SetSessionToken(L"t/1");
    client->GetSessionToken(text);
    EXPECT_TRUE(dynamic_cast<CNativeHttp&>(client.Api()).GetApiBasePath() == L"/api/t/1");
    static_cast<void>(AddRevision("?", "1"));
    const std::pair<const char*, int> lines[] = {
        {"Create", 132},          {"AddRevision", 171},     {"Version", 456}, {"GetEndpoints", 534}, {"GetEndpointsFromResponse", 602},
        {"GetSessionToken", 624}, {"SetSessionToken", 636}, {"Login", 652},   {"Register", 782}};
    for (const auto& [function, line] : lines)
        EXPECT_EQ(trace.EventsOf(std::string("CNativeHttp::") + function).at(0).line, line) << function;
    EXPECT_EQ(trace.EventsOf("CNativeHttp::AddRevision").size(), 1U) << "it has no entry and no exit";
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
    const auto factory = std::make_shared<Nothing>();
    CNativeHttp client(factory, L"device");
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    std::wstring text;
    EXPECT_EQ(client.Init(mode, value), 0x80070006U);
    SetLastError(5);
    EXPECT_EQ(client.Version(text), 6U) << "whatever failed before";
    EXPECT_EQ(client.SetSessionToken(L"x"), 6U);
    EXPECT_EQ(CreateInstanceWithFactory(nullptr, L"device"), nullptr);
    factory->hasMemory = false;
    EXPECT_EQ(CreateInstanceWithFactory(factory, L"device"), nullptr);
}

TEST(ClientCodes, RefusalsMapToTheirErrorIdOrTheirStatus)
{
    const std::tuple<std::uint32_t, std::string, ResultCode> cases[] = {
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
    for (auto [status, body, expected] : cases)
        EXPECT_EQ(MapHttpError(status, AsReply(body)), expected) << body;
}

TEST(JsonHelpers, ReadMembersOfTheirTypeOnly)
{
    std::string body = R"({"s":"x","e":"","t":"true","f":"false","T":"TRUE","one":"1","n":1,"b":true,"c":false,"o":{},"z":null})";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"s", "x", "none"},    {"e", "", "none"},     {"t", "true", "1"},    {"f", "false", "0"},
        {"T", "TRUE", "none"}, {"one", "1", "none"},  {"n", "none", "none"}, {"b", "none", "1"},
        {"c", "none", "0"},    {"o", "none", "none"}, {"z", "none", "none"}, {"missing", "none", "none"}};
    for (const auto& [key, text, truth] : cases)
    {
        std::string string = "none";
        bool value = truth != "1";
        EXPECT_EQ(GetJSONStringFromResponse(AsReply(body), key, string), text != "none") << key;
        EXPECT_EQ(string, text) << key;
        EXPECT_EQ(GetJSONBoolFromResponse(AsReply(body), key, value), truth != "none") << key;
        EXPECT_EQ(value, truth != "0") << key;
    }
    EXPECT_EQ(GetJSONValueFromResponse(AsReply(body), "n").asInt(), 1);
    for (std::string other : {std::string("[1]"), std::string("5"), std::string("{\"n\":1"), std::string(), body})
        EXPECT_TRUE(GetJSONValueFromResponse(AsReply(other), "missing").isNull());
}

TEST(JsonLibrary, ExceptionsOfTheLibraryAreTracedAndNoOthersCaught)
{
    TraceCapture capture;
    {
        const FunctionTraceScope trace("Test::Step", Unit::NativeHttp);
        CatchJsonExceptions(trace, [] { throw std::bad_alloc(); });
        CatchJsonExceptions(trace, [] { throw std::runtime_error("one"); });
        CatchJsonExceptions(trace, [] { Json::throwRuntimeError("two"); });
        CatchJsonExceptions(trace, [] { Json::throwLogicError("three"); });
        EXPECT_THROW(CatchJsonExceptions(trace, [] { throw std::invalid_argument("four"); }), std::invalid_argument);
    }
    const Texts expected = {
        std::string("JSON library has thrown a bad_alloc exception (") + std::bad_alloc().what() + ")!",
        "JSON library has thrown a runtime_error exception (one)!",
        "JSON library has thrown a runtime_error exception (two)!",
        "JSON library has thrown a runtime_error exception (three)!",
    };
    EXPECT_EQ(capture.Messages(EVT_ERROR), expected);
}

TEST(JsonLibrary, SurrogateEscapesAreMendedOnlyWhereTheyAreUnpaired)
{
    const std::pair<const char*, std::string> cases[] = {
        {R"(["\ud83d\ude00"])", "\U0001F600"},
        {R"(["\uD83D\uDE00\ud83d\ude00"])", "\U0001F600\U0001F600"},
        {R"(["\ud83d"])", "\ufffd"},
        {R"(["\ude00"])", "\ufffd"},
        {R"(["\ude00\ud83d"])", "\ufffd\ufffd"},
        {R"(["\ud83d\n\ude00"])", "\ufffd\n\ufffd"},
        {R"(["\\ud83d"])", "\\ud83d"},
        {R"(["\\\ud83d"])", "\\\ufffd"},
        {R"(["\ud7ff\ue000"])", "\ud7ff\ue000"},
    };
    for (const auto& [json, text] : cases)
        EXPECT_EQ(ParseText(json)[0].asString(), text) << json;
    for (std::string broken : {R"(["\ud83)", R"(["\)", R"(["\u)", R"(["\ud83d\u)", R"(["\ud8zz"])", "\\", "\\ud83d"})
    {
        Json::Value value;
        EXPECT_FALSE(ParseJson(AsReply(broken), Comments::Skip, value)) << broken;
    }
}

TEST(RepliesInTheTrace, AreIndentedLineByLine)
{
    TraceCapture trace;
    std::string json = "/* of two\n\nlines */"
                       R"({"a":[1,{"b":2}],"c":"100%s"})";
    LogResponse(AsReply(json));
    EXPECT_EQ(trace.Messages(EVT_INFO), (Texts{"HTTP Response (48 bytes):", "/* of two", "lines */", "{", "   \"a\" : [", "      1,",
                                               "      {", "         \"b\" : 2", "      }", "   ],", "   \"c\" : \"100%s\"", "}"}));
    trace.Clear();
    std::string html = "<html>";
    LogResponse(AsReply(html));
    EXPECT_EQ(trace.Messages(EVT_INFO), Texts{"HTTP Response (6 bytes)"});
}

// The traced lines of a reply, and their size in all.
std::pair<Texts, std::size_t> TraceOf(std::string reply)
{
    const TraceCapture trace;
    LogResponse(AsReply(reply));
    Texts lines = trace.Messages(EVT_INFO);
    std::size_t bytes = 0;
    for (const std::string& line : lines)
        bytes += line.size() + 1;
    return {std::move(lines), bytes};
}

std::string Repeated(const std::string& text, std::size_t times)
{
    std::string all;
    for (std::size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST(RepliesInTheTrace, AreCutWhereTheyWouldBeManyTimesTheirSize)
{
    const std::string item = R"({"name":"a file's name.txt","size":1234567,"permissions":"WRITE","revision":"7"},)";
    const std::string nested = std::string(900, '[') + std::string(900, ']') + ",";
    const struct
    {
        const char* what;
        std::string reply;
        bool isCut;
        std::size_t atLeast = 60; // bytes shown
    } cases[] = {
        {"a listing", "[" + Repeated(item, 2000) + "1]", false, 200000},
        {"a long listing", "[" + Repeated(item, 20000) + "1]", true, 700000},
        {"nesting", "[" + Repeated(nested, 10) + "1]", true},
        {"nesting below members", "{" + Repeated(R"("a":{)", 900) + Repeated("}", 901), true},
        {"one deep value", nested.substr(0, 1800), true},
        {"a long text", "\"" + std::string(1500000, 'x') + "\"", true},
        {"control characters", "[\"" + std::string(300000, '\x01') + "\",1]", true},
        {"lines of comments", std::string(200, '[') + "/*" + Repeated("\n/", 1000) + "*/1" + std::string(200, ']'), true},
    };
    for (const auto& [what, reply, isCut, atLeast] : cases)
    {
        SCOPED_TRACE(what);
        const auto [lines, bytes] = TraceOf(reply);
        EXPECT_EQ(lines.at(0), "HTTP Response (" + std::to_string(reply.size()) + " bytes):");
        EXPECT_EQ(lines.back() == "HTTP Response: too long to be shown as a whole", isCut) << lines.back();
        EXPECT_LE(bytes, std::min<std::size_t>(16 * reply.size() + 1024, 1 << 20) + 200);
        EXPECT_GE(bytes, atLeast);
    }
}

// When the JSON library collects comments, its time grows with the square of their number: half a minute for these.
TEST(Replies, WithCommentsAreReadAtOnce)
{
    std::string reply = "[1 " + Repeated("/**/", 200000) + "]";
    Actions actions;
    Mappings mappings;
    ScriptedClient client;
    const std::clock_t begin = std::clock();
    EXPECT_EQ(GetNotificationsFromResponse(AsReply(reply), actions), 0U);
    EXPECT_EQ(client->GetMappingsFromResponse(AsReply(reply), mappings), 0U);
    EXPECT_EQ(TraceOf(reply).first.at(1), "[ 1 ]");
    EXPECT_LT(std::clock() - begin, 5 * CLOCKS_PER_SEC);
}

TEST(RequestMap, ANewerRequestReplacesTheOlderAndOutlivesIt)
{
    Script script;
    const auto factory = MakeScriptedTransport(script);
    const auto second = factory->CreateRequest(nullptr);
    CNativeHttp::RequestHandleMap requests;
    std::mutex lock;
    TraceCapture trace;
    {
        using Tracker = CNativeHttp::RequestHandleTracker;
        auto older = std::make_unique<Tracker>(requests, lock, factory->CreateRequest(nullptr), L"/a", L"token");
        const Tracker newer(requests, lock, second, L"/a", L"token");
        older.reset();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests.begin()->second, second);
        EXPECT_TRUE(newer.SessionToken() == L"token");
    }
    EXPECT_TRUE(requests.empty());
    EXPECT_EQ(trace.Events().front().line, 227);
    EXPECT_EQ(trace.Events().back().line, 235);
}

} // namespace
