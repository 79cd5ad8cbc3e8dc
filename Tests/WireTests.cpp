// The library over its own transport against a loopback server that records bytes: what goes over the wire, and what becomes of
// every kind of answer.

#include "Attributes.h"
#include "LibraryOverWire.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace
{

TEST(Wire, HandshakeLoginAndVersionGoOutWhole)
{
    RawServer server(AnswerEach([](const std::string& request) {
        const std::string handshake = AnswerHandshake(request);
        if (!handshake.empty())
            return handshake;
        return request.starts_with("POST /sync/sessions ") ? HttpReply(200, R"({"session_token":"abc"})")
                                                           : HttpReply(200, R"({"build_number":"7"})");
    }));
    const Library library(server);
    ASSERT_EQ(library.LogIn(), 0U);
    std::wstring build;
    ASSERT_EQ(library->Version(build), 0U);

    const std::vector<std::string> requests = server.Requests();
    ASSERT_EQ(requests.size(), 4U);
    const std::string host = "Host: 127.0.0.1:" + std::to_string(server.Port());
    const auto sorted = [](std::vector<std::string> lines) {
        // HTTP/1.1 connections stay open whether or not a client says so, and the platform decides on the order.
        std::erase(lines, "Connection: Keep-Alive");
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    EXPECT_EQ(requests[0].substr(0, requests[0].find('\r')), "GET /endpoints HTTP/1.1");
    EXPECT_EQ(sorted(HeaderLines(requests[0])), (std::vector<std::string>{"Accept: application/json", host}));
    EXPECT_EQ(requests[1].substr(0, requests[1].find('\r')), "GET /sync/init HTTP/1.1");

    const std::string body = "user_id=%D0%BF%C3%A9+%26&password=p%3D1&device_token=&device_id=host&device_name=my+device&"
                             "client_version=1.2&platform=Windows+QDClient";
    EXPECT_EQ(requests[2].substr(0, requests[2].find('\r')), "POST /sync/sessions HTTP/1.1");
    EXPECT_EQ(sorted(HeaderLines(requests[2])),
              (std::vector<std::string>{"Accept: application/json", "Content-Length: " + std::to_string(body.size()),
                                        "Content-Type: application/x-www-form-urlencoded; charset=UTF-8", host}));
    EXPECT_EQ(requests[2].substr(requests[2].find("\r\n\r\n") + 4), body);

    EXPECT_EQ(requests[3].substr(0, requests[3].find('\r')), "GET /sync/version HTTP/1.1");
    EXPECT_EQ(HeaderValue(requests[3], "Cookie"), "session_token=abc");
    EXPECT_EQ(server.ConnectionCount(), 1U) << "one connection serves the session";
}

TEST(Wire, AnswersOfEveryKindEndInTheirCode)
{
    struct Case
    {
        const char* what;
        RawServer::Script script;
        std::vector<ResultCode> expected;
    };
    const auto reply = [](std::string bytes) {
        return [bytes](RawConnection& connection) {
            connection.ReadRequest();
            connection.Send(bytes);
        };
    };
    const auto resets = [](RawConnection& connection) {
        connection.ReadRequest();
        connection.Reset();
    };
    const auto closes = [](RawConnection& connection) { connection.ReadRequest(); };
    const Case cases[] = {
        {"reset", resets, {12030, 12152, 10054}}, // Wine hands through the socket's own error
        {"closed without a reply", closes, {12030, 12152}},
        {"garbage", reply("\x01\x02 garbage\r\n\r\n"), {12152}},
        {"no JSON", reply(HttpReply(200, "<html>")), {12004}},
        {"wrong shape", reply(HttpReply(200, R"([{"build_number":"1"}])")), {12004}},
        {"too deep", reply(HttpReply(200, std::string(10000, '['))), {12004}},
        {"empty", reply(HttpReply(200, "")), {8}},
        {"cut short", reply("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"build_number\":"), {12004}},
        {"cut short behind what is needed", reply("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"build_number\":\"1\"}"), {0}},
        {"chunked",
         reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"bui\r\n11\r\nld_number\":\"1\"}  \r\n0\r\n\r\n"),
         {0}},
        {"refused", reply(HttpReply(403, R"({"errorId":"12"})")), {20012}},
    };
    for (const Case& answer : cases)
    {
        SCOPED_TRACE(answer.what);
        RawServer server(answer.script);
        const Library library(server);
        std::wstring build;
        const ResultCode code = library->Version(build);
        EXPECT_TRUE(std::find(answer.expected.begin(), answer.expected.end(), code) != answer.expected.end()) << code;
    }
}

TEST(Wire, AServerThatIsNotThereEndsInTheTransportsCode)
{
    std::uint16_t port = 0;
    {
        const RawServer gone([](RawConnection&) {});
        port = gone.Port();
    }
    TraceCapture trace;
    IQuendraHttpAPI* api = CreateInstance(L"device");
    api->SetServer("http://127.0.0.1");
    api->SetPort(port);
    std::wstring build;
    EXPECT_EQ(api->Version(build), 12029U);
    EXPECT_EQ(trace.Messages(EVT_ERROR),
              (std::vector<std::string>{"WinHttpSendRequest failed, error code: 12029", "GetResponse failed, error code: 12029"}));
    api->SetServer("http://name.invalid");
    EXPECT_EQ(api->Version(build), 12007U);
    api->Release();
}

TEST(Wire, ATokenFromTheServerCannotBecomeAHeader)
{
    RawServer server(AnswerEach([](const std::string& request) {
        const std::string handshake = AnswerHandshake(request);
        return handshake.empty() ? HttpReply(200, R"({"session_token":"a\r\nX-Evil: 1"})") : handshake;
    }));
    const Library library(server);
    EXPECT_EQ(library.LogIn(), 0U);
    std::wstring build;
    EXPECT_EQ(library->Version(build), 87U);
    EXPECT_EQ(server.Requests().size(), 3U);
}

TEST(Wire, AuditDataThatDoesNotFitAFormFieldIsNotSent)
{
    RawServer server(AnswerEach([](const std::string& request) {
        const std::string handshake = AnswerHandshake(request);
        return handshake.empty() ? HttpReply(200, "{}") : handshake;
    }));
    const Library library(server);
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    ASSERT_EQ(library->Init(mode, value), 0U);
    const std::string data(1018, 'x');
    EXPECT_EQ(library->PublishSyncStats(data), 0U);
    EXPECT_TRUE(server.Requests().back().ends_with("\r\n\r\ndata=" + data + "&"));
    EXPECT_EQ(library->PublishSyncStats(data + "x"), 122U);
    EXPECT_EQ(library->PublishSyncStats(std::string(340, '/')), 122U) << "counted as it is sent";
    EXPECT_EQ(server.Requests().size(), 3U);
}

TEST(Wire, ATokenInThePathGoesOutEscaped)
{
    RawServer server(AnswerEach([](const std::string& request) {
        const std::string handshake = AnswerHandshake(request, "1.0");
        return handshake.empty() ? HttpReply(404, "{}") : handshake;
    }));
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    library->SetSessionToken(ToWide("t \xC3\xA9\xF0\x9F\x98\x80"));
    std::shared_ptr<IServerAttributes> item;
    EXPECT_EQ(library->GetPathAttributes(L"/a", item), 20404U);
    EXPECT_EQ(server.Requests().back().substr(0, server.Requests().back().find('\r')),
              "GET /api/t%20%C3%A9%F0%9F%98%80/folders/a HTTP/1.1");
    library->SetSessionToken(L"t\r\nHost: other");
    EXPECT_EQ(library->GetPathAttributes(L"/a", item), 87U);
}

TEST(Wire, ThreadsShareOneClient)
{
    std::atomic<int> logins = 0;
    RawServer server(AnswerEach([&](const std::string& request) {
        if (const std::string handshake = AnswerHandshake(request); !handshake.empty())
            return handshake;
        if (request.starts_with("POST /sync/sessions "))
            return HttpReply(200, R"({"session_token":"t)" + std::to_string(++logins) + "\"}");
        return request.starts_with("GET /sync/version ") ? HttpReply(200, R"({"build_number":"7"})") : HttpReply(401, R"({"errorId":"6"})");
    }));
    const Library library(server);
    constexpr int kRounds = 20;
    const auto repeat = [](const auto& operation) {
        return std::thread([operation] {
            for (int i = 0; i < kRounds; ++i)
                operation();
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(repeat([&] { EXPECT_EQ(library.LogIn(), 0U); }));
    threads.push_back(repeat([&] {
        std::wstring build;
        const ResultCode code = library->Version(build);
        EXPECT_TRUE(code == 0 || code == 20401 || code == 20006) << code; // before the handshake the path is another
    }));
    threads.push_back(repeat([&] {
        ServerItemList children;
        std::shared_ptr<IServerAttributes> folder;
        const ResultCode code = library->GetPathListing(L"/a", children, folder, nullptr);
        EXPECT_TRUE(code == 20006 || code == 1237 || code == 12017 || code == 6 || code == 8 || code == 12019) << code;
    }));
    threads.push_back(repeat([&] { library->CloseRequestHandle(L"/a"); }));
    threads.push_back(repeat([&] {
        library->SetServer("http://127.0.0.1");
        library->SetDeviceName(L"another");
        std::wstring token;
        library->GetSessionToken(token);
        library->IsApiVersionAtLeast13();
    }));
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(logins, kRounds);
}

} // namespace
