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
using Texts = std::vector<std::string>;

const std::string kTimes = R"("creation_time":"2020-01-02T03:04:05.6Z","modification_time":"2021-01-02T03:04:05.6Z")";
const std::string kItem = R"({"name":"a.txt",)" + kTimes + R"(,"size":7,"attributes":32,"revision":"3","permissions":"WRITE"})";
const std::string kOne = R"({"document_info":)" + kItem + "}";
const std::string kTwo = R"({"contents":[)" + kItem + "," + kItem + "]}";
const std::string kThrows = R"({"document_info":{"name":"a",)" + kTimes + R"(,"attributes":-1}})";

Item MakeItem(const std::string& revision = {})
{
    auto item = std::make_shared<CAttributes<CServerItemAttributesBase>>();
    item->SetCreationTime(CAttributeTime("2020-01-02T03:04:05.6Z"));
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

// The plain form of each operation is recorded over the wire; here, what depends on the arguments.
TEST(FolderRequests, AreWhatTheServerExpects)
{
    const auto renaming = [](const char* path, const std::string& target, const std::string& overwrite, const char* operation) {
        return Script::Steps{std::string("POST /sync/folders/") + path + " flags=0", "field path=" + target, "field overwrite=" + overwrite,
                             std::string("last field operation=") + operation, "send"};
    };
    const struct
    {
        Operation run;
        Script::Steps steps;
    } cases[] = {
        {Create(L"/top"), {"POST /sync/folders flags=0", "field name=top", "last field operation=create", "send"}},
        {Create(L"bare"), {"POST /sync/foldersbare flags=0", "field name=bare", "last field operation=create", "send"}},
        {Delete(L"/d/a.txt"), {"DELETE /sync/folders/d/a.txt flags=0", "send"}},
        {[](IQuendraHttpAPI& api, Item&) { return api.DeletePath(L"/d", nullptr); }, {"DELETE /sync/folders/d flags=0", "send"}},
        {Rename(L"/X\xc9/a.txt", L"/x\xe9/b.txt", 1), renaming("X%C3%89/a.txt", "b.txt", "true", "update")},
        {Rename(L"/x/a.txt", L"/y/a.txt", 1), renaming("x/a.txt", "/y/a.txt", "true", "move")},
        {Rename(L"/x/a.txt", L"/y/a.txt", 2), renaming("x/a.txt", "/y/a.txt", "false", "move")},
        {Rename(L"/x\\a", L"/x\\b/c"), renaming("x%5Ca", "b/c", "true", "update")},
    };
    for (const auto& request : cases)
    {
        ScriptedClient client;
        client.Negotiate();
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
    const std::string notInReply = "Failed to extract attributes from reply buffer";
    const std::string inReply = "Extracted attributes from reply buffer";
    const struct
    {
        Operation run;
        std::string body;
        ResultCode expected;
        Texts messages;
    } cases[] = {
        {Create(L"/d/new"),
         kOne,
         0,
         {"Create request for folder: /d/new", "Request Path: /sync/folders/d", "Created folder: /d/new",
          "Extracted created folder attributes from reply"}},
        {Create(L"/d/new"), kTwo, 5, {"Created folder: /d/new", "Failed to extract attributes from response."}},
        {Create(L"/d/new"), kThrows, 5, {"Failed to extract attributes from response."}},
        {Get(L"/a"), kOne, 0, {"Path attributes request for path: /a", inReply}},
        {Get(L"/a"), kItem, 0, {inReply}},
        {Get(L"/a"), kTwo, 13, {notInReply}},
        {Get(L"/a"), "<html>", 13, {notInReply}},
        {Get(L"/a"), kThrows, 13, {notInReply}},
        {Set(L"/a"), kOne, 0, {"Request to set attributes for path: /a"}},
        {Set(L"/a"), "{}", 5, {}},
        {Set(L"/a"), kThrows, 5, {}},
        {Delete(L"/a", "4"), "", 0, {"Request to delete server path: /a", "Revision: 4", "Successfully deleted server path: /a"}},
        {Rename(L"/x/a", L"/x/b"),
         kOne,
         0,
         {"Rename request for path: /x/a to path: /x/b. Over write Target = [false]", "Using UPDATE operation",
          "Extracted attributes from upload reply", "Successfully renamed path: /x/a to path: /x/b"}},
        {Rename(L"/x/a", L"/y/a", 1),
         kOne,
         0,
         {"Rename request for path: /x/a to path: /y/a. Over write Target = [true]", "Using MOVE operation"}},
        {Rename(L"/x/a", L"/x/b"), "{}", 13, {"Failed to extract attributes from response"}},
        {Rename(L"/x/a", L"/x/b"), kThrows, 13, {"Failed to extract attributes from response"}},
    };
    for (const auto& reply : cases)
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, reply.body, 0, {}}};
        TraceCapture trace;
        Item out;
        EXPECT_EQ(reply.run(client.Api(), out), reply.expected) << trace;
        EXPECT_EQ(out != nullptr, reply.expected == 0 && !reply.body.empty()) << trace;
        for (const std::string& message : reply.messages)
            EXPECT_TRUE(trace.Has(EVT_INFO, message) || trace.Has(EVT_ERROR, message)) << message << '\n' << trace;
    }
}

TEST(FolderReplies, EachFailingStepEndsInItsCode)
{
    const std::string receiving = "GetResponse failed, error code: 12030";
    const struct
    {
        Script::Failure connection, request;
        ScriptedReply reply;
        ResultCode expected, whenDeleting;
        std::string message;
    } cases[] = {
        {{1, 0x80070006, 6}, {}, {}, 6, 6, "WinHttpConnection failed to initialise, error code: -2147024890"},
        {{}, {1, 0x80072EF2, 12018}, {}, 12018, 12018, "WinHttpRequest failed to initialise, error code: -2147012878"},
        {{}, {}, {0, std::nullopt, 12030, {}}, 12030, 20000, receiving},
        {{}, {}, {0, R"({"errorId":"9"})", 12030, {}}, 12030, 20009, receiving},
        {{}, {}, {200, std::nullopt, 0, {}}, 8, 8, "Response memory is NULL!"},
        {{}, {}, {404, R"({"errorId":"5"})", 0, {}}, 20005, 20005, "GetHTTPStatus shows failure, code: 404"},
        {{}, {}, {201, kOne, 0, {}}, 20201, 20201, "GetHTTPStatus shows failure, code: 201"}, // created is no success
    };
    const Operation operations[] = {Get(L"/a"), Create(L"/a/b"), Set(L"/a"), Rename(L"/a", L"/b"), List(L"/a"), Delete(L"/a")};
    for (const auto& step : cases)
        for (std::size_t i = 0; i < std::size(operations); ++i)
        {
            SCOPED_TRACE(step.message + " of operation " + std::to_string(i));
            ScriptedClient client;
            client.Negotiate();
            client.script.connectionFailure = step.connection;
            client.script.requestFailure = step.request;
            client.script.replies = {step.reply};
            TraceCapture trace;
            Item out;
            EXPECT_EQ(operations[i](client.Api(), out), i == 5 ? step.whenDeleting : step.expected);
            EXPECT_EQ(out, nullptr);
            EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{step.message});
        }
}

TEST(FolderReplies, OnlyAListingLooksAtAChangedToken)
{
    for (const Operation& run : {Get(L"/a"), Create(L"/a/b"), Set(L"/a"), Rename(L"/a", L"/b"), Delete(L"/a")})
    {
        ScriptedClient client;
        client.Negotiate();
        client->SetSessionToken(L"old");
        client.script.replies = {{401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"new"); }}};
        Item out;
        EXPECT_EQ(run(client.Api(), out), 20006U);
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
        EXPECT_TRUE(client.script.requests.at(0).back().starts_with("last field"));
    }
}

class Listing : public testing::Test
{
protected:
    Listing() { client.Negotiate(); }

    ResultCode List(const ScriptedReply& reply, const CancelEvent* cancelEvent = nullptr)
    {
        client.script.replies = {reply};
        return client->GetPathListing(L"/d", children, folder, cancelEvent);
    }
    ResultCode ListBody(const std::string& body) { return List({200, body, 0, {}}); }

    ScriptedClient client;
    ServerItemList children;
    Item folder;
    TraceCapture trace;
};

TEST_F(Listing, DeliversTheFolderAndItsChildren)
{
    const std::string own = R"({"name":"d","directory":true,)" + kTimes;
    EXPECT_EQ(ListBody(own + R"(,"contents":[)" + kItem + "," + kItem + "]}"), 0U);
    ASSERT_EQ(children.size(), 2U);
    EXPECT_EQ(ToNarrow(children.back()->GetName()), "a.txt");
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(ToNarrow(folder->GetName()), "d");
    for (const char* message : {"Request for path listing of folder: /d", "Request Path: /sync/folders/d?type=all",
                                "Extracted attributes from reply buffer", "Received directory contents for path: /d"})
        EXPECT_TRUE(trace.Has(EVT_INFO, message)) << message;

    EXPECT_EQ(ListBody(own + R"(,"contents":[]})"), 0U);
    EXPECT_EQ(children.size(), 2U) << "appended to";
}

TEST_F(Listing, KeepsChildrenOfAFolderThatCannotBeRead)
{
    EXPECT_EQ(ListBody(R"({"name":"d","contents":[)" + kItem + "]}"), 13U);
    EXPECT_EQ(children.size(), 1U);
    EXPECT_EQ(folder, nullptr);
    EXPECT_EQ(trace.Messages(EVT_ERROR).back(), "Failed to extract attributes from reply buffer");
    EXPECT_TRUE(trace.Has(EVT_INFO, "Received directory contents for path: /d")) << "also after the failure";
    for (const std::string& body : {std::string("<html>"), std::string("[]"), std::string(20000, '[')})
        EXPECT_EQ(ListBody(body), 13U) << body.substr(0, 20);
}

TEST_F(Listing, RefusesAnEmptyPathAndAnUnknownServer)
{
    EXPECT_EQ(client->GetPathListing(L"", children, folder, nullptr), 87U);
    Script script;
    CNativeHttp fresh(MakeScriptedTransport(script), L"device");
    EXPECT_EQ(fresh.GetPathListing(L"/d", children, folder, nullptr), 87U);
    EXPECT_EQ(trace.Messages(EVT_ERROR), (Texts{"Empty server path!", "Called before initialized with server info!"}));
    EXPECT_TRUE(client.script.requests.empty() && script.requests.empty());
}

TEST_F(Listing, IsCancelledBeforeItIsSentAndNotLater)
{
    const CancelEvent cancel{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    EXPECT_EQ(List({}, &cancel), 1223U);
    EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{"Listing cancelled"});
    EXPECT_EQ(client.script.requests.at(0).size(), 1U) << "opened, not sent";

    ResetEvent(cancel.event);
    EXPECT_EQ(List({200, "{" + kTimes + "}", 0, [&] { SetEvent(cancel.event); }}, &cancel), 0U);
    CloseHandle(cancel.event);
}

TEST_F(Listing, AsksForARepetitionWhenAnotherLoginChangedTheToken)
{
    client->SetSessionToken(L"old");
    EXPECT_EQ(List({401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"new"); }}), 1237U);
    EXPECT_EQ(List({401, R"({"errorId":"6"})", 0, {}}), 20006U);
}

TEST_F(Listing, CanBeClosedByItsPathWhileItRuns)
{
    const auto close = [&] {
        client->CloseRequestHandle(L"/other");
        client->CloseRequestHandle(L"/d");
    };
    EXPECT_EQ(List({0, std::nullopt, 12017, close}), 12017U);
    EXPECT_EQ(client.script.requests.at(0).back(), "close");
    client->CloseRequestHandle(L"/d");
    EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [/d]"), 1U) << "it is gone with the operation";
}

} // namespace
