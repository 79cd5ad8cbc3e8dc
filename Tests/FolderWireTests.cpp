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
    const std::wstring path = L"/d/" + ToWide(name);
    const std::string inPath = "%D0%BF%C3%A9%F0%9F%98%80%20%26%3D%2B%25~.txt";
    const std::string inForm = "%D0%BF%C3%A9%F0%9F%98%80+%26%3D%2B%25%7E.txt";
    const auto item = std::make_shared<CServerAttributes>();
    item->SetRevision("4f/9");
    item->SetAttributes(33);
    item->SetCreationTime(CAttributeTime("2020-01-02T03:04:05.6Z"));

    ServerItemList children;
    const struct
    {
        std::function<ResultCode(IQuendraHttpAPI&, Item&)> run;
        std::string target;
        std::string body; // empty: none is sent
    } cases[] = {
        {[](auto& api, auto& out) { return api.GetPathAttributes(L"/", out); }, "GET /sync/folders/", ""},
        {[&](auto& api, auto& out) { return api.GetPathAttributes(path, out); }, "GET /sync/folders/d/" + inPath, ""},
        {[&](auto& api, auto& out) { return api.GetPathListing(path, children, out, nullptr); },
         "GET /sync/folders/d/" + inPath + "?type=all", ""},
        {[&](auto& api, auto& out) { return api.CreateFolder(path, out); }, "POST /sync/folders/d", "name=" + inForm + "&operation=create"},
        {[&](auto& api, auto& out) { return api.SetPathAttributes(path, item, out); }, "POST /sync/folders/d/" + inPath,
         "name=" + inForm + "&operation=update&creation_time=2020-01-02T03%3A04%3A05.600Z&modification_time=INVALID&attributes=33"},
        {[&](auto& api, auto& out) { return api.RenamePath(L"/d/a", path, 0, out); }, "POST /sync/folders/d/a",
         "path=" + inForm + "&overwrite=true&operation=update"},
        {[&](auto& api, auto& out) { return api.RenamePath(L"/e/a", path, 0, out); }, "POST /sync/folders/e/a",
         "path=%2Fd%2F" + inForm + "&overwrite=false&operation=move"},
        {[&](auto& api, auto&) { return api.DeletePath(path, item); }, "DELETE /sync/folders/d/" + inPath + "?revision=4f/9", ""},
    };
    RawServer server(AnswerWith(kReply, "1.3"));
    const Library library(server);
    ASSERT_EQ(library.LogIn(), 0U);
    for (const auto& operation : cases)
    {
        SCOPED_TRACE(operation.target);
        Item out;
        static_cast<void>(operation.run(*library.operator->(), out));
        const std::string request = server.Requests().back();
        EXPECT_EQ(request.substr(0, request.find("\r\n")), operation.target + " HTTP/1.1");
        EXPECT_EQ(request.substr(request.find("\r\n\r\n") + 4), operation.body);
        EXPECT_EQ(HeaderValue(request, "Cookie"), "session_token=abc");
        EXPECT_EQ(HeaderValue(request, "Accept"), "application/json");
        const bool hasBody = !operation.body.empty();
        EXPECT_EQ(HeaderValue(request, "Content-Type"), hasBody ? "application/x-www-form-urlencoded; charset=UTF-8" : "");
        EXPECT_EQ(HeaderValue(request, "Content-Length"), hasBody ? std::to_string(operation.body.size()) : "");
    }
    EXPECT_EQ(server.ConnectionCount(), 1U);
}

TEST(FolderWire, ANameMayBeLong)
{
    const std::string name(32000, 'n');
    const std::string own = R"("directory":true,)" + kTimes;
    RawServer server(AnswerWith(R"({"name":"d",)" + own + R"(,"contents":[{"name":")" + name + "\"," + own + "}]}", "1.3"));
    const Library library(server);
    ASSERT_EQ(library.LogIn(), 0U);
    ServerItemList children;
    Item folder;
    ASSERT_EQ(library->GetPathListing(L"/d", children, folder, nullptr), 0U);
    ASSERT_EQ(children.size(), 1U);
    EXPECT_TRUE(ToNarrow(children.front()->GetName()) == name);
    EXPECT_EQ(library->GetPathAttributes(L"/d/" + children.front()->GetName(), folder), 13U) << "a listing is not one item";
    EXPECT_TRUE(server.Requests().back().starts_with("GET /sync/folders/d/" + name + " HTTP/1.1\r\n"));
    const std::size_t sent = server.Requests().size();
    EXPECT_EQ(library->CreateFolder(L"/d/" + children.front()->GetName(), folder), 122U) << "a form's field is shorter";
    EXPECT_EQ(server.Requests().size(), sent);
}

} // namespace
