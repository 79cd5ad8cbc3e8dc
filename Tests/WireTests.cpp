// The library over its own transport against a loopback server that records bytes: what goes over the wire, and what becomes of
// every kind of answer.

#include "LibraryOverWire.h"
#include "Operations.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

namespace
{

std::string FirstLine(const std::string& request)
{
    return request.substr(0, request.find('\r'));
}

TEST(Wire, HandshakeAndLoginGoOutWhole)
{
    RawServer server(AnswerAll(R"({"session_token":"abc"})"));
    const Library library(server);
    Outputs outputs;
    ASSERT_EQ(LogIn()(library.Api(), outputs), 0U);
    EXPECT_EQ(library->Version(outputs.text), 12004U);

    const std::vector<std::string> requests = server.Requests();
    ASSERT_EQ(requests.size(), 4U);
    const auto sorted = [](std::vector<std::string> lines) {
        // HTTP/1.1 connections stay open whether or not a client says so, and the platform decides on the order.
        std::erase(lines, "Connection: Keep-Alive");
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const std::string host = "Host: 127.0.0.1:" + std::to_string(server.Port());
    EXPECT_EQ(FirstLine(requests[0]), "GET /endpoints HTTP/1.1");
    EXPECT_EQ(sorted(HeaderLines(requests[0])), (std::vector<std::string>{"Accept: application/json", host}));
    EXPECT_EQ(FirstLine(requests[1]), "GET /sync/init HTTP/1.1");
    EXPECT_EQ(FirstLine(requests[2]), "POST /sync/sessions HTTP/1.1");
    const std::size_t body = requests[2].size() - requests[2].find("user_id=");
    EXPECT_EQ(sorted(HeaderLines(requests[2])),
              (std::vector<std::string>{"Accept: application/json", "Content-Length: " + std::to_string(body),
                                        "Content-Type: application/x-www-form-urlencoded; charset=UTF-8", host}));
    EXPECT_EQ(HeaderValue(requests[3], "Cookie"), "session_token=abc");
    EXPECT_EQ(server.ConnectionCount(), 1U) << "one connection serves the session";
}

TEST(Wire, AnswersOfEveryKindEndInTheirCode)
{
    const std::string reset = "reset";
    const std::string start = "HTTP/1.1 200 OK\r\n";
    const std::pair<std::string, std::vector<ResultCode>> cases[] = {
        {reset, {12030, 12152, 10054}}, // Wine hands through the socket's own error
        {"", {12030, 12152}},
        {"\x01\x02 garbage\r\n\r\n", {12152}},
        {HttpReply(200, std::string(10000, '[')), {12004}},
        {HttpReply(200, ""), {8}},
        {start + "Content-Length: 1000\r\n\r\n{\"build_number\":", {12004}},   // cut short
        {start + "Content-Length: 1000\r\n\r\n{\"build_number\":\"1\"}", {0}}, // cut short behind what is needed
        {start + "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"bui\r\n11\r\nld_number\":\"1\"}  \r\n0\r\n\r\n", {0}},
        {HttpReply(403, R"({"errorId":"12"})"), {20012}},
    };
    for (const auto& [reply, expected] : cases)
    {
        SCOPED_TRACE(reply);
        RawServer server([&, &bytes = reply](RawConnection& connection) {
            connection.ReadRequest();
            if (bytes == reset)
                connection.Reset();
            connection.Send(bytes);
        });
        const Library library(server);
        std::wstring build;
        const ResultCode code = library->Version(build);
        EXPECT_TRUE(std::find(expected.begin(), expected.end(), code) != expected.end()) << code;
    }
}

TEST(Wire, AServerThatIsNotThereEndsInTheTransportsCode)
{
    auto gone = std::make_unique<RawServer>([](RawConnection&) {});
    const Library library(*gone);
    gone.reset();
    TraceCapture trace;
    std::wstring build;
    EXPECT_EQ(library->Version(build), 12029U);
    EXPECT_EQ(trace.Messages(EVT_ERROR),
              (std::vector<std::string>{"WinHttpSendRequest failed, error code: 12029", "GetResponse failed, error code: 12029"}));
    library->SetServer("http://name.invalid");
    EXPECT_EQ(library->Version(build), 12007U);
}

TEST(Wire, ATokenInThePathGoesOutEscaped)
{
    RawServer server(AnswerAll("{}", "1.0"));
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    library->SetSessionToken(ToWide("t \xC3\xA9\xF0\x9F\x98\x80"));
    Outputs outputs;
    EXPECT_EQ(library->GetPathAttributes(L"/a", outputs), 13U);
    EXPECT_EQ(FirstLine(server.Requests().back()), "GET /api/t%20%C3%A9%F0%9F%98%80/folders/a HTTP/1.1");
    library->SetSessionToken(L"t\r\nHost: other");
    EXPECT_EQ(library->GetPathAttributes(L"/a", outputs), 87U);
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
    const std::pair<Operation, std::set<ResultCode>> callers[] = {
        {LogIn(), {0}},
        {Call(&Api::Version), {0, 20401, 20006}}, // before the handshake the path is another
        {List(L"/a"), {20006, 1237, 12017, 6, 8, 12019}},
        {Call(&Api::CloseRequestHandle, L"/a"), {0}},
        {Call(&Api::SetServer, "http://127.0.0.1"), {0}},
        {Call(&Api::SetDeviceName, L"another"), {0}},
        {[](Api& api, Outputs&) { return ResultCode{api.IsApiVersionAtLeast13()}; }, {0, 1}},
    };
    constexpr int kRounds = 20;
    std::vector<std::thread> threads;
    for (const auto& [run, expected] : callers)
        threads.emplace_back([&library, &run = run, &expected = expected] {
            for (int i = 0; i < kRounds; ++i)
            {
                Outputs outputs;
                const ResultCode code = run(library.Api(), outputs);
                EXPECT_TRUE(expected.contains(code)) << code;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(logins, kRounds);
}

} // namespace
