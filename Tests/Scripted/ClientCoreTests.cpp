// What all operations share: settings, codes, JSON helpers, the trace of replies, the request map.

#include "CaseFile.h"
#include "JsonText.h"
#include "Operations.h"
#include "Operations/RevisionQuery.h"
#include "Replies/FeedParsing.h"
#include "Replies/JsonLibrary.h"
#include "Replies/JsonReplies.h"
#include "RequestCycle/Judgement.h"
#include "ScriptedClient.h"
#include "TraceCapture.h"

#include "Platform/Platform.h"
#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

namespace
{

using Texts = std::vector<std::string>;

// What each setting of a server leads to: the messages, the connection and the request of an operation.
std::string ShowServer(const Json::Value& given)
{
    ScriptedClient client;
    const TraceCapture trace;
    EXPECT_EQ(client->SetServer(given[0].asString().c_str()), 0U);
    EXPECT_EQ(client->SetPort(443), 0U);
    std::string shown;
    for (const std::string& message : trace.Messages(EVT_INFO))
        shown += message + "; ";
    std::wstring build;
    static_cast<void>(client->Version(build));
    return shown + g_script.connections.at(0) + "; " + g_script.requests.at(0);
}

// A member as a text and as a truth, "-" where it is neither.
std::string ShowMember(const Json::Value& given)
{
    std::string body = JsonLine(given[0]);
    std::string text = "-";
    EXPECT_EQ(GetJSONStringFromResponse(AsReply(body), "m", text), given[0]["m"].isString());
    for (const bool before : {true, false})
    {
        bool value = before; // it stays where there is none
        const bool isTruth = GetJSONBoolFromResponse(AsReply(body), "m", value);
        EXPECT_TRUE(isTruth || value == before);
        if (!before)
            text += isTruth ? value ? " true" : " false" : " -";
    }
    return text;
}

TEST(ClientCore, ReadsAndShowsAsCoreJsonSays)
{
    ExpectCases(ReadCaseFile("Core.json"),
                {{"servers", ShowServer},
                 {"codes",
                  [](const Json::Value& given) {
        std::string body = given[1].asString();
        return std::to_string(MapHttpError(given[0].asUInt(), AsReply(body)));
                  }},
                 {"members", ShowMember},
                 {"escapes", [](const Json::Value& given) { return ParseText("[\"" + given[0].asString() + "\"]")[0].asString(); }},
                 {"broken texts", [](const Json::Value& given) {
                      Json::Value value;
                      std::string broken = given[0].asString();
                      return std::string(ParseJson(AsReply(broken), Comments::Skip, value) ? "read" : "refused");
                  }}});
    std::string body = R"({"n":1})";
    EXPECT_EQ(GetJSONValueFromResponse(AsReply(body), "n").asInt(), 1);
    for (std::string other : {"[1]", "5", "{\"n\":1", "", "{}"})
        EXPECT_TRUE(GetJSONValueFromResponse(AsReply(other), "missing").isNull());
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
    EXPECT_NE(g_script.body.find("&device_name=other&"), std::string::npos);
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
    EXPECT_EQ(client->GetSessionToken(text), 0U);
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

TEST(ClientSettings, RunningOutOfMemoryLeavesATraceAndSendsNoPassword)
{
    struct Exhausted final : WinHttpFactory
    {
        std::shared_ptr<IWinHttpConnection> CreateConnection() override { throw std::bad_alloc(); }
    };
    const Instance client(CreateInstanceWithFactory(std::make_shared<Exhausted>(), L"device"));
    EXPECT_EQ(client.ShakeHands(), 0x80004005U);
    TraceCapture trace;
    Caller caller;
    EXPECT_EQ(LogIn()(client.Api(), caller), 0x80004005U);
    const TracedEvent last = trace.EventsOf("CNativeHttp::Login").back();
    EXPECT_EQ(last.message, "[EXCEPTION EXIT]");
    EXPECT_EQ(last.level, 1);
    EXPECT_EQ(last.line, 652);
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

TEST(RepliesInTheTrace, AreIndentedLineByLine)
{
    EXPECT_EQ(TraceOf("/* of two\n\nlines */"
                      R"({"a":[1,{"b":2}],"c":"100%s"})")
                  .first,
              (Texts{"HTTP Response (48 bytes):", "/* of two", "lines */", "{", "   \"a\" : [", "      1,", "      {", "         \"b\" : 2",
                     "      }", "   ],", "   \"c\" : \"100%s\"", "}"}));
    EXPECT_EQ(TraceOf("<html>").first, Texts{"HTTP Response (6 bytes)"});
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
        {"numbers", "[" + Repeated("1,", 1000) + "1]", false, 5000},
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
    const auto first = std::make_shared<WinHttpRequest>(nullptr);
    const auto second = std::make_shared<WinHttpRequest>(nullptr);
    CNativeHttp::RequestHandleMap requests;
    std::mutex lock;
    TraceCapture trace;
    {
        using Tracker = CNativeHttp::RequestHandleTracker;
        auto older = std::make_unique<Tracker>(requests, lock, first, L"/a", L"token");
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
