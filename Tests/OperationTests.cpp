// What each operation makes of its reply and of every step that fails, over a scripted transport.

#include "Operations.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <cctype>

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

const std::string kRest =
    R"("creation_time":"2020-01-02T03:04:05.6Z","modification_time":"2021-01-02T03:04:05.6Z","size":7,"attributes":32)";
const std::string kItem = R"({"name":"a.txt",)" + kRest + "}";
const std::string kTwo = "[" + kItem + "," + kItem + "]";

// What an operation ends in: its code, and what it delivered.
std::string Perform(ScriptedClient& client, const Operation& run)
{
    Caller caller;
    const std::string code = std::to_string(run(client.Api(), caller));
    return caller.Told().empty() ? code : code + " " + caller.Told();
}

// The operation's own messages, errors marked; the lines of a reply begin in another way.
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
    const std::string action = R"({"a":"create","m":"/x"})";
    const std::string changes = "Requesting list of changes from the server.\nRequest Path: /sync/notifs\n";
    const std::string created = "Creating notification action: type: 'create', value: '/x'\nThere are now 1 notification actions\n";
    const std::string mappings = "Retrieving remote folder mappings\nRequest Path: /sync/folders?includeAll=true&timeout=30\n";
    const std::string create = "Create request for folder: /d/new\nRequest Path: /sync/folders/d\nCreated folder: /d/new\n";
    const std::string get = "Path attributes request for path: /a\nRequest Path: /sync/folders/a\n";
    const std::string set = "Request to set attributes for path: /a\n";
    const std::string rename = "Rename request for path: /x/a to path: ";
    const std::string list = "Request for path listing of folder: /d\nRequest Path: /sync/folders/d?type=all\n";
    const std::string inReply = "Extracted attributes from reply buffer";
    const std::string notInReply = "! Failed to extract attributes from reply buffer";
    const std::string listed = "\nReceived directory contents for path: /d";
    const std::string login = "Server: server, Port: 8080, User: ann, Hostname: host\nReturning cached server mode 1\n"
                              "Request Path: /sync/sessions\n";
    const std::string policy = "\nResponse contains policy block, processing..."; // written in any case
    const std::string token = login + "Login successful. New session token: ";
    const std::string withPolicy = R"({"session_token":"new","policy_block":{}})";
    const std::string noToken = R"({"session_token":5,"note":"policy_block"})";
    const struct
    {
        std::string operation, body, expected, messages;
        std::string version = "1.3"; // of another nothing is asked; none: nor is there a server
    } cases[] = {
        {"create", kItem, "0 a.txt", create + "Extracted created folder attributes from reply"},
        {"create", kTwo, "5", create + "! Failed to extract attributes from response."},
        {"get", kItem, "0 a.txt", get + inReply},
        {"get", kTwo, "13", get + notInReply},
        {"set", kItem, "0 a.txt", set + "Request Path: /sync/folders/a"},
        {"set", kTwo, "5", set + "Request Path: /sync/folders/a"},
        {"delete", "", "0",
         "Request to delete server path: /a\nRevision: 4\nRequest Path: /sync/folders/a?revision=4\nSuccessfully deleted server path: /a"},
        {"rename", kItem, "0 a.txt",
         rename + "/x/b. Over write Target = [false]\nRequest Path: /sync/folders/x/a\nUsing UPDATE operation\n"
                  "Extracted attributes from upload reply\nSuccessfully renamed path: /x/a to path: /x/b"},
        {"move", kTwo, "13",
         rename + "/y/a. Over write Target = [true]\nRequest Path: /sync/folders/x/a\nUsing MOVE operation\n"
                  "! Failed to extract attributes from response"},
        {"list", R"({"name":"d",)" + kRest + R"(,"contents":)" + kTwo + "}", "0 a.txt, a.txt, d", list + inReply + listed},
        {"list", R"({"name":"d",)" + kRest + R"(,"contents":[]})", "0 d", list + inReply + listed},
        {"list", R"({"contents":)" + kTwo + "}", "13 a.txt, a.txt", list + "! Error: [] is not a valid time\n" + notInReply + listed},
        {"list", "<html>", "13", list + notInReply + listed},
        {"changes", action, "0 1 '/x' ''", changes + created + "Extracted 1 notification actions from reply"},
        {"changes", R"({"a":"Move","m":{"from":"/a","to":"/b"}})", "0 3 '/a' '/b'",
         changes + "Creating notification action: type: 'Move', value: '/a', value2: '/b'\nThere are now 1 notification actions\n"
                   "Extracted 1 notification actions from reply"},
        {"changes", "", "0", changes + "Extracted 0 notification actions from reply"},
        {"mappings", R"({"name":"Docs"})", "0 '/Docs' '' '' '' 1 2 2 0", mappings + "Retrieved 1 mappings from the server"},
        {"mappings", "", "13", mappings + "! ERROR: No mappings returned from the server!"},
        {"share", "", "0", "Request Path: /sync/share"},
        {"audit", R"("Secret")", "0", "Publishing auditing data to endpoint [/audit]\nRequest Path: /audit"},
        {"wipe", "", "0", "Request Path: api/devices\nRemote wipe successfully acknowledged"},
        {"version", R"({"build_number":"7\u00e9"})", "0 7\u00e9", "Request Path: /sync/version\nBuild number is 7\u00e9"},
        {"version", R"({"build_number":7})", "12004", "Request Path: /sync/version\n! Bad response to version request!"},
        {"login", R"({"session_token":"new"})", "0 |new", token + "new" + policy},
        {"login", R"({"session_token":""})", "0 |", token + policy},
        {"login", withPolicy, "0 " + withPolicy + "|new", token + "new" + policy},
        {"login", noToken, "5 " + noToken, login + "! Session token is empty!" + policy},
        {"login", "{}", "5", login + "! Session token is empty!" + policy},
        // A token that would break the header line of every later request.
        {"login", R"({"session_token":"a\rb"})", "5", login + "! Session token is empty!" + policy},
        {"login", R"({"session_token":"a\n"})", "5", login + "! Session token is empty!" + policy},
        {"login", R"({"session_token":"\u0000"})", "5", login + "! Session token is empty!" + policy},
        {"mappings", "", "0 '/home' 'Home directory' '' 'WRITE' 1 2 0 0", "API Version 1.0 detected, returning default home mapping",
         "1.0"},
        {"wipe", "", "0", "! AcknowledgeRemoteWipe is not supported on this server version", "1.0"},
        {"list", "", "87", "! Called before initialized with server info!", ""},
        {"audit", "", "1341", "! This server does not have an auditing end point", ""},
        {"register", "", "0", "Request Path: /sync/registrations\nRequest successful, email sent to user"},
    };
    for (const auto& reply : cases)
    {
        SCOPED_TRACE(reply.operation + ": " + reply.body.substr(0, 100));
        ScriptedClient client;
        if (reply.version.empty())
            client->SetServer("");
        else
            client.Negotiate(reply.version);
        client->SetSessionToken(L"old");
        client.script.replies = {{200, reply.body, 0, {}}};
        TraceCapture trace;
        EXPECT_EQ(Perform(client, kOperations.at(reply.operation)), reply.expected);
        EXPECT_EQ(OwnMessages(trace), reply.messages);
        EXPECT_EQ(client.script.requests.size(), reply.version == "1.3" ? 1U : 0U);
        EXPECT_EQ(trace.Mentions("HTTP Response ("), reply.version == "1.3" && reply.operation != "audit");
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

// Has the client's next operation fail at a step of its n-th request, or in its answer.
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
    else if (const auto answer = answers.find(what); answer != answers.end())
        client.script.replies = {answer->second};
    else
        client.script.failingStep = what;
    client.script.failingStepResult = 122;
    if (request > 1)
        client.script.replies.push_front({200, R"({"sync":{"1.3":{"path":"/sync"}}})", 0, {}});
}

TEST(OperationFailures, EndInTheirCodeAndMessage)
{
    const std::map<std::string, std::string> rule = {
        {"connection", "6 WinHttpConnection failed to initialise, error code: -2147024890"},
        {"request", "12018 WinHttpRequest failed to initialise, error code: -2147012878"},
        {"field", "122"},
        {"last field", "122"},
        {"start", "122 ReceiveResponse failed, error code: 122"},
        {"post data", "122 ReceiveResponse failed, error code: 122"},
        {"breaks", "12030 GetResponse failed, error code: 12030"},
        {"no body", "8 Response memory is NULL!"},
        {"created", "20201 GetHTTPStatus shows failure, code: 201"}, // is no success
        {"no status", "20000 GetHTTPStatus shows failure, code: 0"},
        {"old session", "20006 GetHTTPStatus shows failure, code: 401"},
        {"changed session", "20006 GetHTTPStatus shows failure, code: 401"},
        {"changed session, forbidden", "20006 GetHTTPStatus shows failure, code: 403"},
    };
    const std::map<std::string, std::string> departures = {
        {"mode: no body", "8 Received a NULL response buffer."},
        {"login: changed session", "20006 |OLD GetHTTPStatus shows failure, code: 401"},
        {"login: changed session, forbidden", "20006 |OLD GetHTTPStatus shows failure, code: 403"},
        {"delete: breaks", "20009 GetResponse failed, error code: 12030"},
        {"list: changed session", "1237 GetHTTPStatus shows failure, code: 401"},
        {"changes: breaks", "12030 ERROR: GetResponse failed, error code: 12030"},
        {"changes: no body", "0"},
        {"changes: no status", "20000 ERROR: GetHTTPStatus shows failure, code: 0"},
        {"changes: created", "20201 ERROR: GetHTTPStatus shows failure, code: 201"},
        {"changes: old session", "20006 ERROR: GetHTTPStatus shows failure, code: 401"},
        {"changes: changed session, forbidden", "20006 ERROR: GetHTTPStatus shows failure, code: 403"},
        {"changes: changed session", "1237 ERROR: GetHTTPStatus shows failure, code: 401"},
        {"mappings: request", "12018 WinHttpRequest failed to initialise, error code: 0x80072ef2"},
        {"mappings: breaks", "12030 GetResponse failed, error code: 0x2efe"},
        {"audit: no body", "0"},
        {"wipe: connection", "6 WinHttpConnection failed to initialise for [server, 8080], error code: -2147024890"},
        {"wipe: breaks", "12030 ReceiveResponse failed, error code: 12030"},
        {"wipe: no body", "0"},
        {"wipe: no status", "12152 GetHTTPStatus shows failure, code: 0"}, // 0 would be a success
        {"wipe: created", "201 GetHTTPStatus shows failure, code: 201"},
        {"wipe: old session", "401 GetHTTPStatus shows failure, code: 401"},
        {"wipe: changed session, forbidden", "403 GetHTTPStatus shows failure, code: 403"},
        {"wipe: changed session", "401 GetHTTPStatus shows failure, code: 401"},
        {"register: no body", "0"},
    };
    const std::string frame(76, '=');
    const std::string incompatible = " " + frame + " FATAL ERROR: The appliance is not compatible with this version of the client " + frame;
    std::map<std::string, std::string> met; // the operations of each step that not all have
    std::size_t departed = 0;
    for (const auto& [operation, run] : kOperations)
        for (const auto& [failure, ruling] : rule)
        {
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
            if (const std::string& step = client.script.failingStep; !step.empty())
            {
                if (client.script.failingStepCalls == 0)
                    continue; // the operation has no such step
                EXPECT_TRUE(client.script.requests[0].back().starts_with(step)) << "nothing is sent";
                met[step] += operation + " ";
            }
            departed += departures.count(what);
            std::string expected = departures.contains(what) ? departures.at(what) : ruling;
            if (asksForEndpoints)
                expected = "19006" + ruling.substr(ruling.find(' ')) + incompatible;
            EXPECT_EQ(ended, expected);
            EXPECT_EQ(trace.Has(EVT_INFO, "There are no notifications."), what == "changes: no body");
            const std::string retry = "\nOriginalSession [old] CurrentSession [OLD]\n"
                                      "HTTP_STATUS_DENIED received but session token has changed. Retry required with new token";
            EXPECT_EQ(OwnMessages(trace).ends_with(retry), ended.starts_with("1237"));
            // Put back behind the handshake, and in one case more.
            EXPECT_EQ(client.script.timeouts.size(), asksForMode ? 2U : asksForEndpoints + (what == "mappings: connection"));
        }
    EXPECT_EQ(met, (std::map<std::string, std::string>{{"field", "audit create login move register rename set share wipe "},
                                                       {"last field", "create login move register rename set share "},
                                                       {"post data", "wipe "},
                                                       {"start", "wipe "}}));
    EXPECT_EQ(departed, departures.size());
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
    EXPECT_EQ(client->GetPathListing(L"/d", caller.children, caller, &cancel), 1223U);
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
