// The change feed, mappings, share links, audit data and remote wipe, over a scripted transport.

#include "ParsingSupport.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

// The operations, each with the records that it delivers.
struct Records
{
    Actions actions;
    Mappings mappings;
};
using Operation = ResultCode (*)(IQuendraHttpAPI&, Records&);

constexpr Operation kChanges = [](IQuendraHttpAPI& api, Records& records) { return api.GetChanges(records.actions); };
constexpr Operation kMappings = [](IQuendraHttpAPI& api, Records& records) { return api.GetRemoteFolderMap(records.mappings); };
constexpr Operation kShare = [](IQuendraHttpAPI& api, Records&) {
    return api.GenerateLink(std::make_shared<ShareRequest>(ShareRequest{L"name", L"text", {L"/a", L"/b"}, {L"x@y"}}));
};
constexpr Operation kAudit = [](IQuendraHttpAPI& api, Records&) { return api.PublishSyncStats("a\xC3\xA9"); };
constexpr Operation kWipe = [](IQuendraHttpAPI& api, Records&) { return api.AcknowledgeRemoteWipe(L"ann", L"id"); };

TEST(FeedAndSharing, AskAsTheirApiVersionWantsIt)
{
    struct Case
    {
        Operation run;
        const char* version;
        std::vector<Script::Steps> requests;
        const char* message;
    };
    const char* const changes = "Requesting list of changes from the server.";
    const Case cases[] = {
        {kChanges, "none", {{"GET /notifs flags=0", "send"}}, changes},
        {kChanges, "1.0", {{"GET /sync/notifs/tok flags=0", "send"}}, changes},
        {kChanges, "1.1", {{"GET /sync/notifs flags=0", "send"}}, changes},
        {kMappings,
         "none",
         {{"GET /folders?includeAll=true&timeout=30 flags=0", "send"}},
         "Request Path: /folders?includeAll=true&timeout=30"},
        {kMappings, "1.0", {}, "API Version 1.0 detected, returning default home mapping"},
        {kMappings,
         "1.1",
         {{"GET /sync/folders?includeAll=true&timeout=30 flags=0", "send"}},
         "Request Path: /sync/folders?includeAll=true&timeout=30"},
        {kShare,
         "1.0",
         {{"POST /api/tok/share flags=0", "field path=/a", "field path=/b", "field target=x@y", "field name=name", "field message=text",
           "last field type=USER", "send"}},
         "Request Path: /api/tok/share"},
        {kShare,
         "1.3",
         {{"POST /sync/share flags=0", "field path=/a", "field path=/b", "field target=x@y", "field name=name", "field message=text",
           "last field type=USER", "send"}},
         "Request Path: /sync/share"},
        {kAudit, "1.0", {{"POST /audit flags=0", "field data=a\xC3\xA9", "send"}}, "Publishing auditing data to endpoint [/audit]"},
        {kWipe,
         "none",
         {{"POST api/devices flags=0", "field username=ann", "field device_id=id", "start 1000", "post data", "receive"}},
         "Request Path: api/devices"},
        {kWipe, "1.0", {}, "AcknowledgeRemoteWipe is not supported on this server version"},
        {kWipe,
         "1.1",
         {{"POST api/devices flags=0", "field username=ann", "field device_id=id", "start 1000", "post data", "receive"}},
         "Remote wipe successfully acknowledged"},
    };
    for (const Case& asked : cases)
    {
        SCOPED_TRACE(std::string(asked.version) + " " + asked.message);
        ScriptedClient client;
        if (asked.version != std::string("none"))
            client.Negotiate(asked.version);
        client->SetSessionToken(L"tok");
        client.script.replies = {{200, R"({"contents":[{"name":"Docs","secret":"s"}]})", 0, {}}};
        TraceCapture trace;
        Records records;
        EXPECT_EQ(asked.run(client.Api(), records), 0U);
        EXPECT_EQ(client.script.requests, asked.requests);
        const bool isRefused = asked.run == kWipe && asked.requests.empty();
        EXPECT_TRUE(trace.Has(isRefused ? EVT_ERROR : EVT_INFO, asked.message)) << trace;
        EXPECT_EQ(trace.Messages(EVT_ERROR).size(), isRefused ? 1U : 0U) << trace;
        EXPECT_EQ(trace.Mentions("secret"), asked.run != kAudit && asked.run != kWipe && !asked.requests.empty())
            << "replies to audit data and to the acknowledgement of a wipe are not traced";
        const bool isKnown = asked.run == kMappings && asked.requests.empty();
        EXPECT_TRUE(!isKnown || Describe(records.mappings) == std::vector<std::string>{"'/home' 'Home directory' '' 'WRITE' 1 2 0 0"});
        EXPECT_EQ(client.script.connections.size(), asked.requests.size());
    }
    EXPECT_EQ(ScriptedClient()->GenerateLink(nullptr), 87U);
    const auto request = std::make_shared<ShareRequest>();
    EXPECT_EQ(ScriptedClient()->GenerateLink(request), 8U);
    EXPECT_EQ(request.use_count(), 1) << "released on every path";
}

TEST(FeedAndSharing, DeliverWhatAReplyHolds)
{
    struct Case
    {
        Operation run;
        std::string body;
        ResultCode expected;
        std::vector<std::string> records;
        const char* message;
    };
    const std::string create = R"({"a":"create","m":"/x"})";
    const std::vector<std::string> x = {"1 '/x' ''"};
    const std::vector<std::string> docs = {"'/Docs' '' '' '' 1 2 2 0"};
    const auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i)
            text += R"({"contents":)";
        return text + R"({"a":"create","m":"/x","name":"Docs"})" + std::string(static_cast<std::size_t>(depth), '}');
    };
    const char* const none = "Extracted 0 notification actions from reply";
    const char* const noMapping = "ERROR: No mappings returned from the server!";
    const Case cases[] = {
        {kChanges, R"({"contents":[)" + create + "," + create + "]}", 0, {x[0], x[0]}, "Extracted 2 notification actions from reply"},
        {kChanges, create, 0, x, "Extracted 1 notification actions from reply"},
        {kChanges, "[" + create + ",5]", 0, x, "Extracted 1 notification actions from reply"},
        {kChanges, nested(900), 0, x, "Extracted 1 notification actions from reply"},
        {kChanges, nested(20000), 0, {}, none},
        {kChanges, std::string(20000, '['), 0, {}, none},
        {kChanges, "5", 0, {}, none},
        {kChanges, "null", 0, {}, none},
        {kChanges, "<html>", 0, {}, none},
        {kChanges, "", 0, {}, none},
        {kMappings, R"({"contents":[{"name":"Docs"}]})", 0, docs, "Retrieved 1 mappings from the server"},
        {kMappings, R"([{"name":"Docs"},5])", 0, docs, "Retrieved 1 mappings from the server"},
        {kMappings, nested(900), 0, docs, "Retrieved 1 mappings from the server"},
        {kMappings, nested(20000), 13, {}, noMapping},
        {kMappings, R"({"contents":[]})", 13, {}, noMapping},
        {kMappings, "null", 13, {}, noMapping},
        {kMappings, "5", 13, {}, noMapping},
        {kMappings, "<html>", 13, {}, noMapping},
        {kMappings, "", 13, {}, noMapping},
    };
    for (const Case& reply : cases)
    {
        SCOPED_TRACE(reply.body.substr(0, 60) + "\n" + reply.message);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, reply.body, 0, {}}};
        TraceCapture trace;
        Records records;
        EXPECT_EQ(reply.run(client.Api(), records), reply.expected);
        EXPECT_EQ(reply.run == kChanges ? Describe(records.actions) : Describe(records.mappings), reply.records);
        EXPECT_TRUE(trace.Has(reply.message == noMapping ? EVT_ERROR : EVT_INFO, reply.message)) << trace;
    }
}

TEST(FeedAndSharing, EndEachFailureInItsCode)
{
    // What fails: the connection or the request (with their result and last error), a step, or the answer.
    struct Case
    {
        Operation run;
        const char* what;
        ResultCode expected;
        std::vector<std::string> errors;
        ScriptedReply reply = {};
    };
    const ScriptedReply invalid{401, R"({"errorId":"6"})", 0, {}};
    const ScriptedReply noBody{200, std::nullopt, 0, {}};
    const ScriptedReply busy{503, "<html>", 0, {}};
    const ScriptedReply refusal{403, R"({"errorId":"12"})", 0, {}};
    const std::string connection = "WinHttpConnection failed to initialise, error code: -2147024890";
    const std::string request = "WinHttpRequest failed to initialise, error code: -2147012878";
    const std::string send = "GetResponse failed, error code: 12002";
    const std::string refused = "GetHTTPStatus shows failure, code: ";
    const std::string receive = "ReceiveResponse failed, error code: 12002";
    const Case cases[] = {
        {kChanges, "connection", 6, {connection}},
        {kChanges, "request", 12018, {request}},
        {kChanges, "send", 12002, {"ERROR: " + send}},
        {kChanges, "answer", 0, {}, noBody},
        {kChanges, "answer", 20503, {"ERROR: " + refused + "503"}, busy},
        {kChanges, "answer", 20012, {"ERROR: " + refused + "403"}, refusal},
        {kChanges, "answer", 20006, {"ERROR: " + refused + "401"}, invalid},
        {kChanges, "answer, token changed", 1237, {"ERROR: " + refused + "401"}, invalid},
        {kMappings, "connection", 6, {connection}},
        {kMappings, "request", 12018, {"WinHttpRequest failed to initialise, error code: 0x80072ef2"}},
        {kMappings, "send", 12002, {"GetResponse failed, error code: 0x2ee2"}},
        {kMappings, "answer", 8, {"Response memory is NULL!"}, noBody},
        {kMappings, "answer", 20503, {refused + "503"}, busy},
        {kMappings, "answer, token changed", 20006, {refused + "401"}, invalid},
        {kShare, "connection", 6, {connection}},
        {kShare, "request", 12018, {request}},
        {kShare, "field message", 12002, {}},
        {kShare, "send", 12002, {send}},
        {kShare, "answer", 8, {"Response memory is NULL!"}, noBody},
        {kShare, "answer", 20012, {refused + "403"}, refusal},
        {kShare, "answer, token changed", 20006, {refused + "401"}, invalid},
        {kAudit, "connection", 6, {connection}},
        {kAudit, "request", 12018, {request}},
        {kAudit, "field data", 12002, {}},
        {kAudit, "send", 12002, {send}},
        {kAudit, "answer", 0, {}, noBody},
        {kAudit, "answer", 20503, {refused + "503"}, busy},
        {kAudit, "answer, token changed", 20006, {refused + "401"}, invalid},
        {kWipe, "connection", 6, {"WinHttpConnection failed to initialise for [server, 8080], error code: -2147024890"}},
        {kWipe, "request", 12018, {request}},
        {kWipe, "field device_id", 12002, {}},
        {kWipe, "start", 12002, {receive}},
        {kWipe, "post data", 12002, {receive}},
        {kWipe, "receive", 12002, {receive}},
        {kWipe, "answer", 0, {}, noBody},
        {kWipe, "answer", 403, {refused + "403"}, refusal},
        {kWipe, "answer, token changed", 401, {refused + "401"}, invalid},
    };
    for (const Case& failure : cases)
    {
        SCOPED_TRACE(std::string(failure.what) + " " + (failure.errors.empty() ? "without a message" : failure.errors[0]));
        ScriptedClient client;
        client.Negotiate();
        const std::string what = failure.what;
        client.script.replies = {failure.reply};
        if (what == "answer, token changed")
            client.script.replies.front().meanwhile = [&] { client->SetSessionToken(L"new"); };
        else if (what == "connection")
            client.script.connectionFailure = {1, 0x80070006, 6};
        else if (what == "request")
            client.script.requestFailure = {1, 0x80072EF2, 12018};
        else if (what != "answer")
            client.script.failingStep = what;
        client.script.failingStepResult = 12002;
        TraceCapture trace;
        Records records;
        EXPECT_EQ(failure.run(client.Api(), records), failure.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), failure.errors) << trace;
        EXPECT_TRUE(records.actions.empty() && records.mappings.empty());
        EXPECT_TRUE(!what.starts_with("field") || client.script.requests[0].back().starts_with(what)) << "nothing is sent";
        EXPECT_EQ(client.script.timeouts.size(), failure.run == kMappings && what == "connection" ? 1U : 0U)
            << "put back in this case only";
        EXPECT_EQ(trace.Has(EVT_INFO, "There are no notifications."), failure.run == kChanges && failure.expected == 0);
    }
}

TEST(FeedAndSharing, AServerWithoutAnAuditEndpointIsToldNothing)
{
    ScriptedClient client;
    TraceCapture trace;
    EXPECT_EQ(client->PublishSyncStats("x"), 1341U);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"This server does not have an auditing end point"});
    EXPECT_TRUE(client.script.requests.empty());
    client.script.connectionFailure = {2, 0x80070006, 6};
    EXPECT_EQ(client->PublishSyncStats("x"), 6U) << "the connection comes first";
}

TEST(FeedAndSharing, TheFeedIsClosedByItsOwnKey)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.replies = {{0, std::nullopt, 12017, [&] { client->CloseRequestHandle(L"/notifs"); }}};
    Actions actions;
    EXPECT_EQ(client->GetChanges(actions), 12017U);
    EXPECT_EQ(client.script.requests.at(0).back(), "close");
    client->CloseRequestHandle(L"/notifs");
    EXPECT_EQ(client.script.requests.at(0).back(), "close") << "an ended request is forgotten";
    EXPECT_EQ(client.script.requests.at(0).size(), 3U);
}

} // namespace
