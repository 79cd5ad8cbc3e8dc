// What each operation makes of its reply and of every step that fails, over a scripted transport.

#include "JsonText.h"
#include "Operations.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <regex>
#include <set>

namespace
{

ResultCode ShakeHands(Api& api, Caller&)
{
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    return api.Init(mode, value);
}

const std::map<std::string, Operation> kOperations = {
    {"endpoints", ShakeHands}, // the handshake's first request, and its second
    {"mode", ShakeHands},
    {"create", Call(&Api::CreateFolder, L"/d/new")},
    {"get", Call(&Api::GetPathAttributes, L"/a")},
    {"set", Call(&Api::SetPathAttributes, L"/a", MakeItem(7, ""))},
    {"delete", Call(&Api::DeletePath, L"/a", MakeItem(7, "4"))},
    {"rename", Call(&Api::RenamePath, L"/x/a", L"/x/b", 0U)},
    {"move", Call(&Api::RenamePath, L"/x/a", L"/y/a", 1U)},
    {"list", List(L"/d")},
    {"changes", Call(&Api::GetChanges)},
    {"mappings", Call(&Api::GetRemoteFolderMap)},
    {"share", Call(&Api::GenerateLink, std::make_shared<ShareRequest>())},
    {"audit", Call(&Api::PublishSyncStats, "x")},
    {"wipe", Call(&Api::AcknowledgeRemoteWipe, L"ann", L"id")},
    {"version", Call(&Api::Version)},
    {"login", LogIn()},
    {"register", Call(&Api::Register, L"ann", L"host")},
};

const std::string kItem = R"({"name":"a.txt","creation_time":"2020-01-02T03:04:05.6Z",)"
                          R"("modification_time":"2021-01-02T03:04:05.6Z","size":7,"attributes":32})";

// Performs an operation: its code, and what it gave.
std::string Perform(ScriptedClient& client, const Operation& run)
{
    Caller caller;
    const std::string code = std::to_string(run(client.Api(), caller));
    return caller.Told().empty() ? code : code + " " + caller.Told();
}

// The operation's own messages, errors with "! ". The lines of a traced reply are left out: they do not begin with a capital letter.
std::string OwnMessages(const TraceCapture& trace)
{
    std::string messages;
    for (const TracedEvent& event : trace.Events())
        if (event.IsMessage() && std::isupper(static_cast<unsigned char>(event.message[0])) != 0 && !event.message.starts_with("HTTP Resp"))
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
        client.script.replies = {{200, std::regex_replace(body, std::regex("\"?\\$item\"?"), kItem), 0, {}}};
        TraceCapture trace;
        EXPECT_EQ(Perform(client, kOperations.at(each["operation"].asString())), each["gives"].asString());
        std::string messages;
        for (const Json::Value& message : each["messages"])
            messages += (messages.empty() ? "" : "\n") + message.asString();
        EXPECT_EQ(OwnMessages(trace), messages);
        EXPECT_EQ(client.script.requests.size(), version == "1.3" ? 1U : 0U);
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
    EXPECT_EQ(OwnMessages(trace), "! Empty server path!\nRequest to set attributes for path: /a");
    EXPECT_TRUE(client.script.requests.empty());
}

// Has the client's next operation fail before its n-th request, or in the answer to it.
void Break(ScriptedClient& client, const std::string& what, int request)
{
    const std::map<std::string, ScriptedReply> answers = {
        {"breaks", {0, R"({"errorId":"9"})", 12030, {}}},
        {"no body", {200, std::nullopt, 0, {}}},
        {"created", {201, kItem, 0, {}}},
        {"no status", {0, "", 0, {}}},
        {"old session", {401, R"({"errorId":"6"})", 0, {}}},
        {"changed session", {401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"OLD"); }}},
        {"changed session, forbidden", {403, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"OLD"); }}},
    };
    if (what == "connection")
        client.script.connectionFailure = {request, 0x80070006, 6};
    else if (what == "request")
        client.script.requestFailure = {request, 0x80072EF2, 12018};
    else
        client.script.replies = {answers.at(what)};
    if (request > 1)
        client.script.replies.push_front({200, R"({"sync":{"1.3":{"path":"/sync"}}})", 0, {}});
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
            EXPECT_EQ(client.script.timeouts.size(), asksForMode ? 2U : asksForEndpoints + (what == "mappings: connection"));
        }
    EXPECT_EQ(departed, departures.size());
}

TEST(OperationFailures, OfAStepEndInTheirCodeAndMessage)
{
    const Json::Value cases = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Failures.json");
    const Json::Value& rule = cases["steps"];
    const Json::Value& departures = cases["steps, but"];
    const std::map<std::string, Operation> transfers = AllTransfers();
    std::map<std::string, Operation> all = transfers;
    for (const auto& [name, run] : kOperations)
        if (name != "endpoints" && name != "mode")
            all.insert({name, run});
    std::set<std::string> met;
    for (const auto& [name, run] : all)
    {
        Script::Steps steps;
        std::string whole; // what it ends in where all goes well, as it does the first time
        std::map<std::string, int> calls;
        for (std::size_t failing = 0; failing <= steps.size(); ++failing)
        {
            ScriptedClient client;
            client.Negotiate();
            client->SetSessionToken(L"old");
            Script& script = client.script;
            script.replies = {{200, kItem, 0, {}}};
            std::string expected = transfers.contains(name) ? "0" : whole;
            if (failing != 0)
            {
                script.failingStep = steps[failing - 1];
                script.failingStepCall = ++calls[script.failingStep];
                script.failingStepResult = 77;
                const auto kinds = rule.getMemberNames();
                const auto isKind = [&](const std::string& each) { return script.failingStep.starts_with(each); };
                const auto kind = std::find_if(kinds.begin(), kinds.end(), isKind);
                ASSERT_NE(kind, kinds.end()) << script.failingStep;
                const std::string what = name + ": " + *kind + " " + std::to_string(script.failingStepCall);
                if (const std::string end = departures.get(what, rule[*kind]).asString(); !end.empty())
                    expected = end;
                met.insert({*kind, what});
            }
            SCOPED_TRACE(name + ": " + script.failingStep);
            const TraceCapture trace;
            Caller caller;
            caller.item = MakeItem(100, "");
            std::string ended = std::to_string(run(client.Api(), caller));
            for (const std::string& message : trace.Messages(EVT_ERROR))
                ended += " " + message;
            if (failing == 0)
            {
                steps = script.requests.at(0);
                whole = ended;
            }
            EXPECT_EQ(ended, expected.empty() ? whole : expected);
            EXPECT_TRUE(ended == whole || (caller.Told().empty() && script.requests.at(0).back() == script.failingStep));
            for (const std::string& step : steps)
                EXPECT_TRUE(step.find("revision") == std::string::npos || name == "delete") << step;
            EXPECT_EQ(script.connections.at(0),
                      name == "delta upload" ? "server:8080 send=300000 receive=600000" : "server:8080 send=0 receive=0");
        }
    }
    for (const Json::Value* const table : {&rule, &departures})
        for (const std::string& what : table->getMemberNames())
            EXPECT_TRUE(met.contains(what)) << what << " is never met";
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
        client.script.replies = {{0, std::nullopt, 12017, [&client, key = key] {
                                      client->CloseRequestHandle(L"/other");
                                      client->CloseRequestHandle(key);
                                  }}};
        TraceCapture trace;
        EXPECT_EQ(Perform(client, kOperations.at(operation)), "12017");
        EXPECT_EQ(client.script.requests.at(0).back(), "close");
        client->CloseRequestHandle(key);
        EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [" + ToNarrow(key) + "]"), 1U) << "it is gone with the operation";
    }
}

TEST(OperationRequests, ForAListingAreCancelledBeforeTheyAreSentAndNotLater)
{
    ScriptedClient client;
    client.Negotiate();
    const CancelEvent cancel{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    TraceCapture trace;
    Caller caller;
    EXPECT_EQ(client->GetPathListing(L"/d", caller.children, caller, &cancel), Result::Cancelled);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"Listing cancelled"});
    EXPECT_EQ(client.script.requests.at(0).size(), 1U) << "opened, not sent";

    ResetEvent(cancel.event);
    client.script.replies = {{200, kItem, 0, [&] { SetEvent(cancel.event); }}};
    caller.children = {MakeItem(7, "")};
    EXPECT_EQ(client->GetPathListing(L"/d", caller.children, caller, &cancel), 0U);
    EXPECT_EQ(caller.children.size(), 1U) << "appended to";
    CloseHandle(cancel.event);
}

} // namespace
