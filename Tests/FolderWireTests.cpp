// The operations on folders and paths, recorded by a server that knows nothing of them.

#include "Attributes.h"
#include "LibraryOverWire.h"
#include "TextConversion.h"

#include <gtest/gtest.h>

namespace
{

using Item = std::shared_ptr<IServerAttributes>;

const std::string kTimes = R"("creation_time":"2020-01-02T03:04:05.6Z","modification_time":"2021-01-02T03:04:05.6Z")";
const std::string kReply =
    R"({"document_info":{"name":"a.txt",)" + kTimes + R"(,"size":7,"attributes":32,"revision":"3","permissions":"WRITE"}})";

// A server that answers everything behind the login with one reply.
RawServer::Script AnswerWith(const std::string& reply, const std::string& version)
{
    return AnswerEach([=](const std::string& request) {
        if (const std::string handshake = AnswerHandshake(request, version); !handshake.empty())
            return handshake;
        return HttpReply(200, request.starts_with("POST /sync/sessions ") ? R"({"session_token":"abc"})" : reply);
    });
}

TEST(FolderWire, EachOperationIsItsVerbUrlAndBody)
{
    const std::string name = "\xD0\xBF\xC3\xA9\xF0\x9F\x98\x80 &=+%~.txt";
    const std::wstring wideName = ToWide(name);
    const std::string inPath = "%D0%BF%C3%A9%F0%9F%98%80%20%26%3D%2B%25~.txt";
    const std::string inForm = "%D0%BF%C3%A9%F0%9F%98%80+%26%3D%2B%25%7E.txt";
    const auto item = std::make_shared<CServerAttributes>();
    item->SetRevision("4f/9");
    item->SetAttributes(33);
    CAttributeTime created;
    created = std::string("2020-01-02T03:04:05.6Z");
    item->SetCreationTime(created);

    struct Case
    {
        std::function<ResultCode(IQuendraHttpAPI&, Item&)> run;
        std::string requestLine;
        std::string body;
    };
    const Case cases[] =
        {
            {[](auto& api, auto& out) { return api.GetPathAttributes(L"/", out); }, "GET /sync/folders/ HTTP/1.1", ""},
            {[&](auto& api, auto& out) { return api.GetPathAttributes(L"/d/" + wideName, out); },
             "GET /sync/folders/d/" + inPath + " HTTP/1.1", ""},
            {[&](auto& api, auto& out) {
        ServerItemList children;
        return api.GetPathListing(L"/d/" + wideName, children, out, nullptr);
             },
             "GET /sync/folders/d/" + inPath + "?type=all HTTP/1.1", ""},
            {[&](auto& api, auto& out) { return api.CreateFolder(L"/d/" + wideName, out); }, "POST /sync/folders/d HTTP/1.1",
             "name=" + inForm + "&operation=create"},
            {[&](auto& api, auto& out) { return api.SetPathAttributes(L"/d/" + wideName, item, out); },
             "POST /sync/folders/d/" + inPath + " HTTP/1.1",
             "name=" + inForm + "&operation=update&creation_time=2020-01-02T03%3A04%3A05.600Z&modification_time=INVALID&attributes=33"},
            {[&](auto& api, auto& out) { return api.RenamePath(L"/d/a", L"/d/" + wideName, 0, out); }, "POST /sync/folders/d/a HTTP/1.1",
             "path=" + inForm + "&overwrite=true&operation=update"},
            {[&](auto& api, auto& out) { return api.RenamePath(L"/d/a", L"/e/" + wideName, 0, out); }, "POST /sync/folders/d/a HTTP/1.1",
             "path=%2Fe%2F" + inForm + "&overwrite=false&operation=move"},
            {[&](auto& api, auto&) { return api.DeletePath(L"/d/" + wideName, item); },
             "DELETE /sync/folders/d/" + inPath + "?revision=4f/9 HTTP/1.1", ""},
    };
    RawServer server(AnswerWith(kReply, "1.3"));
    const Library library(server);
    ASSERT_EQ(library.LogIn(), 0U);
    for (const Case& operation : cases)
    {
        SCOPED_TRACE(operation.requestLine);
        Item out;
        static_cast<void>(operation.run(*library.operator->(), out));
        const std::string request = server.Requests().back();
        EXPECT_EQ(request.substr(0, request.find("\r\n")), operation.requestLine);
        EXPECT_EQ(request.substr(request.find("\r\n\r\n") + 4), operation.body);
        EXPECT_EQ(HeaderValue(request, "Cookie"), "session_token=abc");
        EXPECT_EQ(HeaderValue(request, "Accept"), "application/json");
        const bool hasBody = !operation.body.empty();
        EXPECT_EQ(HeaderValue(request, "Content-Type"), hasBody ? "application/x-www-form-urlencoded; charset=UTF-8" : "");
        EXPECT_EQ(HeaderValue(request, "Content-Length"), hasBody ? std::to_string(operation.body.size()) : "");
    }
    EXPECT_EQ(server.ConnectionCount(), 1U);
}

TEST(FolderWire, AFolderMayBeEmptyAndANameMayBeLong)
{
    const std::string longName(32000, 'n');
    for (const std::string& name : {std::string(), longName})
    {
        const std::string child = R"({"name":")" + name + R"(","directory":true,)" + kTimes + "}";
        RawServer server(
            AnswerWith(R"({"name":"d","directory":true,)" + kTimes + R"(,"contents":[)" + (name.empty() ? "" : child) + "]}", "1.3"));
        const Library library(server);
        ASSERT_EQ(library.LogIn(), 0U);
        ServerItemList children;
        Item folder;
        ASSERT_EQ(library->GetPathListing(L"/d", children, folder, nullptr), 0U);
        ASSERT_EQ(children.size(), name.empty() ? 0U : 1U);
        if (name.empty())
            continue;
        EXPECT_EQ(children.front()->GetName().size(), 32000U);
        EXPECT_EQ(library->GetPathAttributes(L"/d/" + children.front()->GetName(), folder), 13U) << "a listing is not one item";
        EXPECT_TRUE(server.Requests().back().starts_with("GET /sync/folders/d/" + longName + " HTTP/1.1\r\n"));
    }
}

} // namespace
