// What each operation makes of its reply, and of what another transport may return, over scripted platform calls.

#include "JsonText.h"
#include "Operations.h"
#include "Patterns.h"
#include "ScriptedClient.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace
{

// The handshake counts as two: its first request, and its second.
const std::map<std::string, Operation> kOperations = [] {
    auto operations = PathOperations();
    operations.insert({{"endpoints", ShakeHands}, {"mode", ShakeHands}});
    return operations;
}();

const std::string kItem = R"({"name":"a.txt","creation_time":"2020-01-02T03:04:05.6Z",)"
                          R"("modification_time":"2021-01-02T03:04:05.6Z","size":7,"attributes":32})";

// Performs an operation: its code, and what it gave.
std::string Perform(ScriptedClient& client, const Operation& run)
{
    const TemporaryFolder folder;
    Caller caller;
    caller.local = folder.Write("local", std::string(100, 'x'));
    caller.signature = folder.Write("signature", "x");
    const std::string code = std::to_string(run(client.Api(), caller));
    return caller.Outputs().empty() ? code : code + " " + caller.Outputs();
}

// The operation's own messages, errors with "! ". The transport's are left out, and the lines of a traced reply: they do not begin with a
// capital letter.
std::string OwnMessages(const TraceCapture& trace)
{
    std::string messages;
    for (const TracedEvent& event : trace.Events())
        if (event.IsMessage() && event.unit != "WinHttpImpl" && std::isupper(static_cast<unsigned char>(event.message[0])) != 0 &&
            !event.message.starts_with("HTTP Resp"))
            messages += (messages.empty() ? "" : "\n") + std::string(event.level == EVT_ERROR.level ? "! " : "") + event.message;
    return messages;
}

TEST(OperationReplies, EndInTheirCodeRecordsAndMessages)
{
    const Json::Value cases = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Operations.json");
    EXPECT_GT(cases.size(), 30U);
    for (const Json::Value& each : cases)
    {
        SCOPED_TRACE(JsonLine(each));
        const Json::Value& reply = each["reply"];
        const std::string body = reply.isString() ? reply.asString() : JsonLine(reply);
        const std::string version = each.get("version", "1.3").asString();
        ScriptedClient client;
        if (version.empty())
            client->SetServer("");
        else
            client.Negotiate(version);
        client->SetSessionToken(L"old");
        g_script.replies = {{200, ReplaceAll(body, "\"?\\$item\"?", kItem), 0, {}}};
        TraceCapture trace;
        EXPECT_EQ(Perform(client, kOperations.at(each["operation"].asString())), each["gives"].asString());
        std::string messages;
        for (const Json::Value& message : each["messages"])
            messages += (messages.empty() ? "" : "\n") + message.asString();
        EXPECT_EQ(OwnMessages(trace), messages);
        EXPECT_EQ(g_script.requests.size(), version == "1.3" ? 1U : 0U);
        EXPECT_EQ(trace.Mentions("HTTP Response ("), version == "1.3" && each["operation"] != "audit");
    }
}

TEST(OperationReplies, AreNotAskedForWithoutWhatTheOperationNeeds)
{
    ScriptedClient client;
    client.Negotiate();
    TraceCapture trace;
    EXPECT_EQ(Perform(client, List(L"")), "87");
    EXPECT_EQ(Perform(client, Call(&Api::SetPathAttributes, L"/a", nullptr)), "87");
    EXPECT_EQ(Perform(client, Call(&Api::GenerateLink, nullptr)), "87");
    const Operation incomplete[] = {
        [](Api& api, Caller& caller) { return api.UploadFile(caller.local, L"/a", caller.item, nullptr, caller.cancel, nullptr); },
        [](Api& api, Caller& caller) {
        return api.ResumableUpload(caller.local, L"/a", caller.item, kUpload, nullptr, nullptr, 1, caller.cancel, nullptr);
        },
        [](Api& api, Caller& caller) {
        return api.DownloadData(L"/a", caller.local, caller.item, caller.given, nullptr, nullptr, caller.cancel, nullptr);
    },
                    [](Api& api, Caller&) { return api.GetResumableUploadMetadata(L"/a", kUpload, nullptr, nullptr); }};
    for (const auto& operation : incomplete)
        EXPECT_EQ(Perform(client, operation), "87");
    EXPECT_EQ(OwnMessages(trace), "! Empty server path!\nRequest to set attributes for path: /a");
    EXPECT_TRUE(g_script.requests.empty());
}

TEST(OperationReplies, MayReplaceTheRecordThatHoldsThePath)
{
    const std::string path = "/a folder whose name takes memory of its own";
    for (const std::string& message :
         {"Received directory contents for path: " + path, "Successfully renamed path: " + path + " to path: /b"})
    {
        ScriptedClient client;
        client.Negotiate();
        g_script.replies = {{200, kItem, 0, {}}};
        Caller caller;
        caller.given = MakeItem(0, "");
        caller.given->SetAlternatePath(ToWide(path));
        const std::wstring& asked = caller.given->GetAlternatePath();
        const TraceCapture trace;
        EXPECT_EQ(message.starts_with("R") ? client->GetPathListing(asked, caller.children, caller.given, nullptr)
                                           : client->RenamePath(asked, L"/b", 1, caller.given),
                  0U);
        EXPECT_TRUE(trace.Has(EVT_INFO, message)) << trace;
    }
}

// Has the client's next operation fail before its n-th request, or in the answer to it.
void Break(ScriptedClient& client, const std::string& what, int request)
{
    const std::map<std::string, WinHttpScript::Reply> answers = {
        {"no body", {}},
        {"created", {201, kItem, 0, {}}},
        {"no status", {0, "{}", 0, {}}},
        {"old session", {401, R"({"errorId":"6"})", 0, {}}},
        {"changed session", {401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"OLD"); }}},
        {"changed session, forbidden", {403, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"OLD"); }}},
    };
    if (what == "connection")
        g_script.foreign = {"connect", request, 0x80070006, 6};
    else if (what == "request")
        g_script.foreign = {"open", request, 0x80072EF2, 12018};
    else
        g_script.replies = {answers.at(what)};
    if (request > 1)
        g_script.replies.push_front({200, R"({"sync":{"1.3":{"path":"/sync"}}})", 0, {}});
}

TEST(OperationFailures, OfTheAnswerEndInTheirCodeAndMessage)
{
    const Json::Value cases = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Failures.json");
    const Json::Value& departures = cases["answers, but"];
    const std::string frame(76, '=');
    const std::string incompatible = " " + frame + " FATAL ERROR: The appliance is not compatible with this version of the client " + frame;
    Json::ArrayIndex departed = 0;
    for (const auto& [operation, run] : kOperations)
        for (const std::string& failure : cases["answers"].getMemberNames())
        {
            const std::string ruling = cases["answers"][failure].asString();
            const std::string what = operation + ": " + failure;
            SCOPED_TRACE(what);
            ScriptedClient client;
            const bool asksForMode = operation == "mode";
            const bool asksForEndpoints = operation == "endpoints";
            if (!asksForMode && !asksForEndpoints)
                client.Negotiate();
            client->SetSessionToken(L"old");
            Break(client, failure, asksForMode ? 2 : 1);
            TraceCapture trace;
            std::string ended = Perform(client, run);
            for (const std::string& message : trace.Messages(EVT_ERROR))
                ended += " " + message;
            departed += departures.isMember(what) ? 1U : 0U;
            std::string expected = departures.get(what, ruling).asString();
            if (asksForEndpoints)
                expected = "19006" + ruling.substr(ruling.find(' ')) + incompatible;
            EXPECT_EQ(ended, expected);
            EXPECT_EQ(trace.Has(EVT_INFO, "There are no notifications."), what == "changes: no body");
            const std::string retry = "\nOriginalSession [old] CurrentSession [OLD]\n"
                                      "HTTP_STATUS_DENIED received but session token has changed. Retry required with new token";
            EXPECT_EQ(OwnMessages(trace).ends_with(retry), ended.starts_with("1237"));
            // The handshake puts the timeouts back, and so does one failure.
            EXPECT_EQ(g_script.timeouts.back() == std::vector<int>({60000, 60000, 300000, 300000}),
                      asksForMode || what == "mappings: connection");
        }
    EXPECT_EQ(departed, departures.size());
}

// Where the library's own transport never fails; what follows from its failures is shown over the platform's calls.
TEST(OperationFailures, OfAnotherTransportsStepsEndInTheirCodeAndMessage)
{
    auto operations = PathOperations();
    operations.merge(AllTransfers());
    const Json::Value cases = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Failures.json");
    EXPECT_GT(cases["steps"].size(), 10U);
    for (const Json::Value& each : cases["steps"])
    {
        SCOPED_TRACE(JsonLine(each));
        ScriptedClient client;
        client.Negotiate();
        g_script.replies = {{200, kItem, 0, {}}};
        g_script.foreign = {each[1].asString(), each[2].asInt(), 77, 77};
        const TraceCapture trace;
        std::string ended = Perform(client, operations.at(each[0].asString()));
        for (const std::string& message : trace.Messages(EVT_ERROR))
            ended += " " + message;
        EXPECT_EQ(ended, each[3].asString());
        EXPECT_LE(g_script.foreign.call, 0) << "it is met";
        EXPECT_EQ(g_script.Count("WinHttpReceiveResponse") == 0, !ended.starts_with("0"));
    }
}

TEST(OperationFailures, OfTheConnectionComeBeforeAMissingAuditEndpoint)
{
    ScriptedClient client;
    Break(client, "connection", 1);
    EXPECT_EQ(client->PublishSyncStats("x"), 6U);
}

TEST(OperationFailures, ReleaseTheShareRequest)
{
    const auto request = std::make_shared<ShareRequest>();
    EXPECT_EQ(ScriptedClient()->GenerateLink(request), 8U);
    EXPECT_EQ(request.use_count(), 1);
}

TEST(OperationRequests, AreClosedByTheirKeyWhileTheyRun)
{
    for (const auto& [operation, key] : {std::pair{"list", L"/d"}, {"changes", L"/notifs"}})
    {
        ScriptedClient client;
        client.Negotiate();
        std::size_t closed = 0;
        g_script.replies = {{0, "", 12017, [&, key = key] {
                                 client->CloseRequestHandle(L"/other");
                                 closed = g_script.closed.size();
                                 client->CloseRequestHandle(key);
                                 closed = g_script.closed.size() - closed;
                             }}};
        TraceCapture trace;
        EXPECT_EQ(Perform(client, kOperations.at(operation)), "12017");
        EXPECT_EQ(closed, 1U);
        client->CloseRequestHandle(key);
        EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [" + ToNarrow(key) + "]"), 1U) << "it is gone with the operation";
    }
}

TEST(OperationRequests, ForAListingAreCancelledBeforeTheyAreSentAndNotLater)
{
    ScriptedClient client;
    client.Negotiate();
    const Event cancel;
    cancel.Signal();
    TraceCapture trace;
    Caller caller;
    EXPECT_EQ(client->GetPathListing(L"/d", caller.children, caller, &cancel), Result::Cancelled);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"Listing cancelled"});
    EXPECT_EQ(g_script.Count("WinHttpOpenRequest"), 1);
    EXPECT_EQ(g_script.Count("WinHttpSendRequest"), 0);

    ResetEvent(cancel.event);
    g_script.replies = {{200, kItem, 0, [&] { cancel.Signal(); }}};
    caller.children = {MakeItem(7, "")};
    EXPECT_EQ(client->GetPathListing(L"/d", caller.children, caller, &cancel), 0U);
    EXPECT_EQ(caller.children.size(), 1U) << "appended to";
}

} // namespace
