// The change feed, mappings, share links, audit data and remote wipe, over a scripted transport.

#include "Mapping.h"
#include "NotificationAction.h"
#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

// Lists whose records a test does not have to delete.
template <typename List> struct Owned : List
{
    Owned() = default;
    ~Owned()
    {
        for (const auto* record : *this)
            delete record;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
};
using Actions = Owned<std::list<CNotificationAction*>>;
using Mappings = Owned<std::vector<CMapping*>>;

TEST(ChangeFeed, AsksBelowTheEndpointPath)
{
    for (const auto& [version, path] :
         std::vector<std::pair<const char*, const char*>>{{"1.0", "GET /sync/notifs/tok flags=0"}, {"1.1", "GET /sync/notifs flags=0"}})
    {
        ScriptedClient client;
        client.Negotiate(version);
        client->SetSessionToken(L"tok");
        Actions actions;
        EXPECT_EQ(client->GetChanges(actions), 0U);
        EXPECT_EQ(client.script.requests, std::vector<Script::Steps>({{path, "send"}}));
    }
}

TEST(ChangeFeed, EndsEachAnswerInItsCode)
{
    struct Case
    {
        ScriptedReply reply;
        ResultCode expected;
        std::size_t count;
        const char* message;
    };
    const std::string create = R"({"a":"create","m":"/x"})";
    for (const Case& answer :
         {Case{{200, R"({"contents":[)" + create + "," + create + "]}", 0, {}}, 0, 2, "Extracted 2 notification actions from reply"},
          Case{{200, create, 0, {}}, 0, 1, "Extracted 1 notification actions from reply"},
          Case{{200, "[" + create + ",5]", 0, {}}, 0, 1, "Extracted 1 notification actions from reply"},
          Case{{200, "<html>", 0, {}}, 0, 0, "Extracted 0 notification actions from reply"},
          Case{{200, std::string(20000, '['), 0, {}}, 0, 0, "Extracted 0 notification actions from reply"},
          Case{{200, std::nullopt, 0, {}}, 0, 0, "There are no notifications."},
          Case{{0, std::nullopt, 12017, {}}, 12017, 0, "ERROR: GetResponse failed, error code: 12017"},
          Case{{401, R"({"errorId":"6"})", 0, {}}, 20006, 0, "ERROR: GetHTTPStatus shows failure, code: 401"}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {answer.reply};
        TraceCapture trace;
        Actions actions;
        EXPECT_EQ(client->GetChanges(actions), answer.expected);
        EXPECT_EQ(actions.size(), answer.count);
        EXPECT_TRUE(trace.Has(EVT_INFO, answer.message) || trace.Has(EVT_ERROR, answer.message)) << trace;
    }
}

TEST(ChangeFeed, IsClosedByItsOwnKey)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.replies = {{0, std::nullopt, 12017, [&] { client->CloseRequestHandle(L"/notifs"); }}};
    Actions actions;
    EXPECT_EQ(client->GetChanges(actions), 12017U);
    EXPECT_EQ(client.script.requests.at(0).back(), "close");
}

TEST(FolderMappings, AreAskedForOrKnown)
{
    ScriptedClient old;
    old.Negotiate("1.0");
    Mappings home;
    EXPECT_EQ(old->GetRemoteFolderMap(home), 0U);
    EXPECT_TRUE(old.script.requests.empty());
    ASSERT_EQ(home.size(), 1U);
    EXPECT_TRUE(home[0]->ServerPath == L"/home" && home[0]->LocalPath.empty() && home[0]->Description == L"Home directory" &&
                home[0]->Permissions == L"WRITE");
    EXPECT_EQ(static_cast<int>(home[0]->Mode), 1);
    EXPECT_EQ(static_cast<int>(home[0]->Status), 2);
    EXPECT_EQ(home[0]->AllowSharing, 0U);
    EXPECT_EQ(static_cast<int>(home[0]->Type), 0);

    struct Case
    {
        ScriptedReply reply;
        ResultCode expected;
        const char* message;
    };
    for (const Case& answer : {Case{{200, R"({"contents":[{"name":"Docs"}]})", 0, {}}, 0, "Retrieved 1 mappings from the server"},
                               Case{{200, R"({"contents":[]})", 0, {}}, 13, "ERROR: No mappings returned from the server!"},
                               Case{{200, "<html>", 0, {}}, 13, "ERROR: No mappings returned from the server!"},
                               Case{{200, std::nullopt, 0, {}}, 8, "Response memory is NULL!"},
                               Case{{0, std::nullopt, 12002, {}}, 12002, "GetResponse failed, error code: 0x2ee2"},
                               Case{{401, R"({"errorId":"6"})", 0, {}}, 20006, "GetHTTPStatus shows failure, code: 401"}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {answer.reply};
        client.script.replies.front().meanwhile = [&] { client->SetSessionToken(L"new"); }; // no repetition is asked for here
        TraceCapture trace;
        Mappings mappings;
        EXPECT_EQ(client->GetRemoteFolderMap(mappings), answer.expected);
        EXPECT_EQ(client.script.requests, std::vector<Script::Steps>({{"GET /sync/folders?includeAll=true&timeout=30 flags=0", "send"}}));
        EXPECT_TRUE(trace.Has(EVT_INFO, answer.message) || trace.Has(EVT_ERROR, answer.message)) << trace;
    }
}

TEST(FolderMappings, ReportAFailingRequestInHexadecimal)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.requestFailure = {1, 0x80072EF2, 12018};
    TraceCapture trace;
    Mappings mappings;
    EXPECT_EQ(client->GetRemoteFolderMap(mappings), 12018U);
    EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{"WinHttpRequest failed to initialise, error code: 0x80072ef2"});
    client.script = {};
    client.script.connectionFailure = {1, 0x80070006, 6};
    EXPECT_EQ(client->GetRemoteFolderMap(mappings), 6U);
    EXPECT_EQ(client.script.timeouts.size(), 1U) << "the timeouts are put back";
}

TEST(Sharing, PostsItsFieldsInOrder)
{
    ScriptedClient client;
    client.Negotiate();
    client.script.replies = {{200, "{}", 0, {}}};
    auto request = std::make_shared<ShareRequest>(ShareRequest{L"name", L"text", {L"/a", L"/b"}, {L"x@y"}});
    EXPECT_EQ(client->GenerateLink(request), 0U);
    EXPECT_EQ(request.use_count(), 1);
    EXPECT_EQ(client.script.requests,
              std::vector<Script::Steps>({{"POST /sync/share flags=0", "field path=/a", "field path=/b", "field target=x@y",
                                           "field name=name", "field message=text", "last field type=USER", "send"}}));
    client.script.replies = {{200, std::nullopt, 0, {}}, {403, "{}", 0, {}}};
    EXPECT_EQ(client->GenerateLink(request), 8U);
    EXPECT_EQ(client->GenerateLink(request), 20403U);
    EXPECT_EQ(client->GenerateLink(nullptr), 87U);
}

TEST(Audit, IsPostedToTheLoggingEndpointAndNotLogged)
{
    ScriptedClient client;
    TraceCapture trace;
    EXPECT_EQ(client->PublishSyncStats("x"), 1341U);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "This server does not have an auditing end point"));
    EXPECT_TRUE(client.script.requests.empty());
    client.Negotiate();
    trace.Clear();
    client.script.replies = {{200, R"({"secret":1})", 0, {}}, {500, "{}", 0, {}}};
    EXPECT_EQ(client->PublishSyncStats("a\xC3\xA9"), 0U);
    EXPECT_EQ(client.script.requests.at(0), (Script::Steps{"POST /audit flags=0", "field data=a\xC3\xA9", "send"}));
    EXPECT_FALSE(trace.Mentions("secret"));
    EXPECT_EQ(client->PublishSyncStats("x"), 20500U);
    client.script.failingStep = "field data";
    client.script.failingStepResult = 122;
    EXPECT_EQ(client->PublishSyncStats("x"), 122U);
    EXPECT_EQ(client.script.requests.at(2).back(), "field data=x") << "nothing is sent";
}

TEST(RemoteWipe, IsAcknowledgedWithTheBareStatus)
{
    ScriptedClient old;
    old.Negotiate("1.0");
    TraceCapture trace;
    EXPECT_EQ(old->AcknowledgeRemoteWipe(L"ann", L"id"), 0U);
    EXPECT_TRUE(old.script.requests.empty());
    EXPECT_TRUE(trace.Has(EVT_ERROR, "AcknowledgeRemoteWipe is not supported on this server version"));

    ScriptedClient client;
    client.Negotiate();
    client.script.replies = {{200, "", 0, {}}, {403, "{}", 0, {}}, {0, std::nullopt, 12030, {}}};
    EXPECT_EQ(client->AcknowledgeRemoteWipe(L"ann", L"id"), 0U);
    EXPECT_EQ(client.script.requests.at(0), (Script::Steps{"POST api/devices flags=0", "field username=ann", "field device_id=id",
                                                           "start 1000", "post data", "receive"}));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Remote wipe successfully acknowledged"));
    EXPECT_EQ(client->AcknowledgeRemoteWipe(L"ann", L"id"), 403U);
    EXPECT_EQ(client->AcknowledgeRemoteWipe(L"ann", L"id"), 12030U);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "ReceiveResponse failed, error code: 12030"));
    trace.Clear();
    client.script.connectionFailure = {static_cast<int>(client.script.connections.size()) + 1, 0x80070006, 6};
    EXPECT_EQ(client->AcknowledgeRemoteWipe(L"ann", L"id"), 6U);
    EXPECT_EQ(trace.Messages(EVT_ERROR),
              std::vector<std::string>{"WinHttpConnection failed to initialise for [server, 8080], error code: -2147024890"});
}

} // namespace
