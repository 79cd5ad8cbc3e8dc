// Operations on one path and the listing of a folder, over a scripted transport.

#include "Attributes.h"
#include "ScriptedTransport.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "Platform/Platform.h"
#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

using Item = std::shared_ptr<IServerAttributes>;

const std::string kTimes = R"("creation_time":"2020-01-02T03:04:05.6Z","modification_time":"2021-01-02T03:04:05.6Z")";
const std::string kItem = R"({"name":"a.txt",)" + kTimes + R"(,"size":7,"attributes":32,"revision":"3","permissions":"WRITE"})";
const std::string kOne = R"({"document_info":)" + kItem + "}";
const std::string kTwo = R"({"contents":[)" + kItem + "," + kItem + "]}";
const std::string kThrows = R"({"document_info":{"name":"a",)" + kTimes + R"(,"attributes":-1}})";

Item MakeItem(const std::string& revision = {})
{
    auto item = std::make_shared<CAttributes<CServerItemAttributesBase>>();
    CAttributeTime created;
    created = std::string("2020-01-02T03:04:05.6Z");
    item->SetCreationTime(created);
    item->SetAttributes(33);
    item->SetRevision(revision);
    return item;
}

// One operation with the arguments of a case.
using Operation = std::function<ResultCode(IQuendraHttpAPI&, Item&)>;

Operation Create(const wchar_t* path)
{
    return [path](IQuendraHttpAPI& api, Item& out) { return api.CreateFolder(path, out); };
}
Operation Get(const wchar_t* path)
{
    return [path](IQuendraHttpAPI& api, Item& out) { return api.GetPathAttributes(path, out); };
}
Operation Set(const wchar_t* path)
{
    return [path](IQuendraHttpAPI& api, Item& out) { return api.SetPathAttributes(path, MakeItem(), out); };
}
Operation Delete(const wchar_t* path, const char* revision = "")
{
    return [=](IQuendraHttpAPI& api, Item&) { return api.DeletePath(path, MakeItem(revision)); };
}
Operation Rename(const wchar_t* source, const wchar_t* target, std::uint32_t overwrite = 0)
{
    return [=](IQuendraHttpAPI& api, Item& out) { return api.RenamePath(source, target, overwrite, out); };
}
Operation List(const wchar_t* path)
{
    return [path](IQuendraHttpAPI& api, Item& out) {
        ServerItemList children;
        return api.GetPathListing(path, children, out, nullptr);
    };
}

TEST(FolderRequests, AreWhatTheServerExpects)
{
    struct Case
    {
        Operation run;
        Script::Steps steps;
    };
    const Case cases[] = {
        {Create(L"/a b/new"), {"POST /sync/folders/a%20b flags=0", "field name=new", "last field operation=create", "send"}},
        {Create(L"/top"), {"POST /sync/folders flags=0", "field name=top", "last field operation=create", "send"}},
        {Create(L"bare"), {"POST /sync/foldersbare flags=0", "field name=bare", "last field operation=create", "send"}},
        {Get(L"/\xe9~/x?y"), {"GET /sync/folders/%C3%A9~/x%3Fy flags=0", "send"}},
        {Set(L"/d/a.txt"),
         {"POST /sync/folders/d/a.txt flags=0", "field name=a.txt", "field operation=update",
          "field creation_time=2020-01-02T03:04:05.600Z", "field modification_time=INVALID", "last field attributes=33", "send"}},
        {Delete(L"/d/a.txt"), {"DELETE /sync/folders/d/a.txt flags=0", "send"}},
        {Delete(L"/d/a.txt", "12"), {"DELETE /sync/folders/d/a.txt?revision=12 flags=0", "send"}},
        {[](IQuendraHttpAPI& api, Item&) { return api.DeletePath(L"/d", nullptr); }, {"DELETE /sync/folders/d flags=0", "send"}},
        {Rename(L"/x/a.txt", L"/x/b.txt"),
         {"POST /sync/folders/x/a.txt flags=0", "field path=b.txt", "field overwrite=true", "last field operation=update", "send"}},
        {Rename(L"/X\xc9/a.txt", L"/x\xe9/b.txt", 1),
         {"POST /sync/folders/X%C3%89/a.txt flags=0", "field path=b.txt", "field overwrite=true", "last field operation=update", "send"}},
        {Rename(L"/x/a.txt", L"/y/a.txt"),
         {"POST /sync/folders/x/a.txt flags=0", "field path=/y/a.txt", "field overwrite=false", "last field operation=move", "send"}},
        {Rename(L"/x/a.txt", L"/y/a.txt", 1),
         {"POST /sync/folders/x/a.txt flags=0", "field path=/y/a.txt", "field overwrite=true", "last field operation=move", "send"}},
        {Rename(L"/x/a.txt", L"/y/a.txt", 2),
         {"POST /sync/folders/x/a.txt flags=0", "field path=/y/a.txt", "field overwrite=false", "last field operation=move", "send"}},
        {Rename(L"/x\\a", L"/x\\b/c"),
         {"POST /sync/folders/x%5Ca flags=0", "field path=b/c", "field overwrite=true", "last field operation=update", "send"}},
        {List(L"/a b"), {"GET /sync/folders/a%20b?type=all flags=0", "send"}},
    };
    for (const Case& request : cases)
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kOne, 0, {}}};
        Item out;
        request.run(client.Api(), out);
        EXPECT_EQ(client.script.requests, std::vector<Script::Steps>{request.steps});
    }
}

TEST(FolderRequests, CarryTheTokenInThePathForApi10)
{
    ScriptedClient client;
    client.Negotiate("1.0");
    client->SetSessionToken(L"tok");
    Item out;
    client->GetPathAttributes(L"/a", out);
    EXPECT_EQ(client.script.requests.at(0).at(0), "GET /api/tok/folders/a flags=0");
}

TEST(FolderReplies, EndInTheirCodeAndMessages)
{
    struct Case
    {
        const char* what;
        Operation run;
        std::string body;
        ResultCode expected;
        std::vector<const char*> messages;
    };
    const Case cases[] = {
        {"create",
         Create(L"/d/new"),
         kOne,
         0,
         {"Create request for folder: /d/new", "Request Path: /sync/folders/d", "Created folder: /d/new",
          "Extracted created folder attributes from reply"}},
        {"create, two items", Create(L"/d/new"), kTwo, 5, {"Created folder: /d/new", "Failed to extract attributes from response."}},
        {"create, conversion throws", Create(L"/d/new"), kThrows, 5, {"Failed to extract attributes from response."}},
        {"get", Get(L"/a"), kOne, 0, {"Path attributes request for path: /a", "Extracted attributes from reply buffer"}},
        {"get, the item itself", Get(L"/a"), kItem, 0, {"Extracted attributes from reply buffer"}},
        {"get, two items", Get(L"/a"), kTwo, 13, {"Failed to extract attributes from reply buffer"}},
        {"get, no JSON", Get(L"/a"), "<html>", 13, {"Failed to extract attributes from reply buffer"}},
        {"get, conversion throws", Get(L"/a"), kThrows, 13, {"Failed to extract attributes from reply buffer"}},
        {"set", Set(L"/a"), kOne, 0, {"Request to set attributes for path: /a"}},
        {"set, none", Set(L"/a"), "{}", 5, {}},
        {"delete",
         Delete(L"/a", "4"),
         "anything",
         0,
         {"Request to delete server path: /a", "Revision: 4", "Successfully deleted server path: /a"}},
        {"rename",
         Rename(L"/x/a", L"/x/b"),
         kOne,
         0,
         {"Rename request for path: /x/a to path: /x/b. Over write Target = [false]", "Using UPDATE operation",
          "Extracted attributes from upload reply", "Successfully renamed path: /x/a to path: /x/b"}},
        {"move",
         Rename(L"/x/a", L"/y/a", 1),
         kOne,
         0,
         {"Rename request for path: /x/a to path: /y/a. Over write Target = [true]", "Using MOVE operation"}},
        {"rename, none", Rename(L"/x/a", L"/x/b"), "[]", 13, {"Failed to extract attributes from response"}},
    };
    for (const Case& reply : cases)
    {
        SCOPED_TRACE(reply.what);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, reply.body, 0, {}}};
        TraceCapture trace;
        Item out;
        EXPECT_EQ(reply.run(client.Api(), out), reply.expected);
        EXPECT_EQ(out != nullptr, reply.expected == 0 && std::string(reply.what) != "delete");
        for (const char* message : reply.messages)
            EXPECT_TRUE(trace.Has(EVT_INFO, message) || trace.Has(EVT_ERROR, message)) << message << '\n' << trace;
    }
}

TEST(FolderReplies, EachFailingStepEndsInItsCode)
{
    struct Case
    {
        const char* what;
        Script::Failure connection;
        Script::Failure request;
        std::vector<ScriptedReply> replies;
        ResultCode expected;
        ResultCode whenDeleting;
        const char* message;
    };
    const Case cases[] = {
        {"connection", {1, 0x80070006, 6}, {}, {}, 6, 6, "WinHttpConnection failed to initialise, error code: -2147024890"},
        {"request", {}, {1, 0x80072EF2, 12018}, {}, 12018, 12018, "WinHttpRequest failed to initialise, error code: -2147012878"},
        {"receive", {}, {}, {{0, std::nullopt, 12030, {}}}, 12030, 20000, "GetResponse failed, error code: 12030"},
        {"receive, a refusal in memory",
         {},
         {},
         {{0, R"({"errorId":"9"})", 12030, {}}},
         12030,
         20009,
         "GetResponse failed, error code: 12030"},
        {"no body", {}, {}, {{200, std::nullopt, 0, {}}}, 8, 8, "Response memory is NULL!"},
        {"refusal", {}, {}, {{404, R"({"errorId":"5"})", 0, {}}}, 20005, 20005, "GetHTTPStatus shows failure, code: 404"},
        {"created is no success", {}, {}, {{201, kOne, 0, {}}}, 20201, 20201, "GetHTTPStatus shows failure, code: 201"},
    };
    for (const Case& step : cases)
    {
        const Operation operations[] = {Create(L"/a/b"), Get(L"/a"), Set(L"/a"), Rename(L"/a", L"/b"), List(L"/a"), Delete(L"/a")};
        for (std::size_t i = 0; i < std::size(operations); ++i)
        {
            SCOPED_TRACE(step.what + std::string(" of operation ") + std::to_string(i));
            ScriptedClient client;
            client.Negotiate();
            client.script.connectionFailure = step.connection;
            client.script.requestFailure = step.request;
            client.script.replies = {step.replies.begin(), step.replies.end()};
            TraceCapture trace;
            Item out;
            EXPECT_EQ(operations[i](client.Api(), out), i + 1 == std::size(operations) ? step.whenDeleting : step.expected);
            EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{step.message});
            EXPECT_EQ(out, nullptr);
        }
    }
}

TEST(FolderRequests, AFieldThatCannotBeSentSendsNothing)
{
    for (const Operation& run : {Create(L"/a/b"), Set(L"/a"), Rename(L"/a", L"/b"), Rename(L"/a", L"/x/b")})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.failingStep = "last field";
        client.script.failingStepResult = 122;
        Item out;
        EXPECT_EQ(run(client.Api(), out), 122U);
        EXPECT_EQ(client.script.requests.at(0).back().rfind("last field", 0), 0U);
    }
}

class Listing : public testing::Test
{
protected:
    Listing() { client.Negotiate(); }

    ResultCode List(const std::string& body, const CancelEvent* cancelEvent = nullptr)
    {
        client.script.replies = {{200, body, 0, {}}};
        return client->GetPathListing(L"/d", children, folder, cancelEvent);
    }

    ScriptedClient client;
    ServerItemList children;
    Item folder;
};

TEST_F(Listing, DeliversTheFolderAndItsChildren)
{
    TraceCapture trace;
    const std::string own = R"("name":"d","directory":true,)" + kTimes;
    EXPECT_EQ(List("{" + own + R"(,"contents":[)" + kItem + "," + kItem + "]}"), 0U);
    ASSERT_EQ(children.size(), 2U);
    EXPECT_TRUE(children.back()->GetName() == L"a.txt");
    ASSERT_NE(folder, nullptr);
    EXPECT_TRUE(folder->GetName() == L"d");
    for (const char* message : {"Request for path listing of folder: /d", "Request Path: /sync/folders/d?type=all",
                                "Extracted attributes from reply buffer", "Received directory contents for path: /d"})
        EXPECT_TRUE(trace.Has(EVT_INFO, message)) << message;

    EXPECT_EQ(List("{" + own + R"(,"contents":[]})"), 0U);
    EXPECT_EQ(children.size(), 2U) << "appended to";
}

TEST_F(Listing, KeepsChildrenOfAFolderThatCannotBeRead)
{
    TraceCapture trace;
    EXPECT_EQ(List(R"({"name":"d","contents":[)" + kItem + "]}"), 13U);
    EXPECT_EQ(children.size(), 1U);
    EXPECT_EQ(folder, nullptr);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Failed to extract attributes from reply buffer"));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Received directory contents for path: /d")) << "also after the failure";
    for (const std::string& body : {std::string("<html>"), std::string("[]"), std::string("null"), std::string(20000, '['), kThrows})
        EXPECT_EQ(List(body), 13U) << body.substr(0, 20);
}

TEST_F(Listing, RefusesAnEmptyPathAndAnUnknownServer)
{
    TraceCapture trace;
    EXPECT_EQ(client->GetPathListing(L"", children, folder, nullptr), 87U);
    Script script;
    CNativeHttp fresh(MakeScriptedTransport(script), L"device");
    EXPECT_EQ(fresh.GetPathListing(L"/d", children, folder, nullptr), 87U);
    EXPECT_EQ(trace.Messages(EVT_ERROR), (std::vector<std::string>{"Empty server path!", "Called before initialized with server info!"}));
    EXPECT_TRUE(client.script.requests.empty());
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(Listing, IsCancelledBeforeItIsSentAndNotLater)
{
    const CancelEvent cancel{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    TraceCapture trace;
    EXPECT_EQ(List("{}", &cancel), 1223U);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Listing cancelled"));
    EXPECT_EQ(client.script.requests.at(0).size(), 1U) << "opened, not sent";

    ResetEvent(cancel.event);
    client.script.replies = {{200, "{" + kTimes + "}", 0, [&] { SetEvent(cancel.event); }}};
    EXPECT_EQ(client->GetPathListing(L"/d", children, folder, &cancel), 0U);
    CloseHandle(cancel.event);
}

TEST_F(Listing, AsksForARepetitionWhenAnotherLoginChangedTheToken)
{
    client->SetSessionToken(L"old");
    client.script.replies = {{401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"new"); }}};
    EXPECT_EQ(client->GetPathListing(L"/d", children, folder, nullptr), 1237U);
    client.script.replies = {{401, R"({"errorId":"6"})", 0, {}}};
    EXPECT_EQ(client->GetPathListing(L"/d", children, folder, nullptr), 20006U);
}

TEST_F(Listing, CanBeClosedByItsPathWhileItRuns)
{
    TraceCapture trace;
    client.script.replies = {{0, std::nullopt, 12017, [&] {
                                  client->CloseRequestHandle(L"/other");
                                  client->CloseRequestHandle(L"/d");
                              }}};
    EXPECT_EQ(client->GetPathListing(L"/d", children, folder, nullptr), 12017U);
    EXPECT_EQ(client.script.requests.at(0).back(), "close");
    EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [/d]"), 1U);
    client->CloseRequestHandle(L"/d");
    EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [/d]"), 1U) << "it is gone with the operation";
}

} // namespace
