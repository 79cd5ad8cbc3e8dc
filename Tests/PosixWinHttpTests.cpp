/// @file
/// WinHTTP's calls over curl: what goes over the wire, what comes back from it, and every way in which it goes wrong.

#include "PosixHttpSupport.h"
#include "RawServer.h"

#include <array>
#include <cstdlib>
#include <numeric>

using namespace HttpCalls;

namespace
{
constexpr DWORD kNulTerminated = 0xFFFFFFFF;

std::string HostLine(const RawServer& server)
{
    return "Host: 127.0.0.1:" + std::to_string(server.Port()) + "\r\n";
}

// What goes out.

TEST(PosixWinHttpWire, SendsExactlyWhatWasAsked)
{
    struct Case
    {
        const wchar_t* verb;
        const wchar_t* path;
        const wchar_t* headers;
        const char* body;
        const char* before; ///< the host line
        const char* after;
    };
    const Case cases[] = {
        {L"GET", L"/a", nullptr, "", "GET /a HTTP/1.1\r\n", "\r\n"},
        {nullptr, nullptr, nullptr, "", "GET / HTTP/1.1\r\n", "\r\n"},
        {L"HEAD", L"/h", nullptr, "", "HEAD /h HTTP/1.1\r\n", "\r\n"},
        {L"DELETE", L"/d", nullptr, "", "DELETE /d HTTP/1.1\r\n", "\r\n"},
        {L"POST", L"/p", nullptr, "", "POST /p HTTP/1.1\r\n", "Content-Length: 0\r\n\r\n"},
        {L"PUT", L"/p", nullptr, "", "PUT /p HTTP/1.1\r\n", "Content-Length: 0\r\n\r\n"},
        {L"POST", L"/p", L"Content-Type: text/x", "a=b", "POST /p HTTP/1.1\r\n", "Content-Type: text/x\r\nContent-Length: 3\r\n\r\na=b"},
        {L"MOVE", L"api/devices", nullptr, "x", "MOVE /api/devices HTTP/1.1\r\n", "Content-Length: 1\r\n\r\nx"},
        {L"GET", L"/a b/\u00e9\U0001F600?q=\"<>\\^`{|}[]#\x7f", nullptr, "",
         "GET /a%20b/%C3%A9%F0%9F%98%80?q=%22%3C%3E%5C%5E%60%7B%7C%7D%5B%5D%23%7F HTTP/1.1\r\n", "\r\n"},
        {L"GET", L"/%41%2f%zz/.././/x?a=1&b=%20?", nullptr, "", "GET /%41%2f%zz/.././/x?a=1&b=%20? HTTP/1.1\r\n", "\r\n"},
        {L"GET", L"/cr\r\nX: y", nullptr, "", "GET /cr%0D%0AX:%20y HTTP/1.1\r\n", "\r\n"},
        {L"GET", L"/n", L"X-Name: \u00fc\U0001F600\r\nX-Empty:\r\n", "", "GET /n HTTP/1.1\r\n",
         "X-Name: \xC3\xBC\xF0\x9F\x98\x80\r\nX-Empty:\r\n\r\n"},
    };
    RawServer server(AnswerEach([](const std::string& request) {
        return request.starts_with("HEAD") ? std::string("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n") : HttpReply(200, "ok");
    }));
    const HttpClient client(server.Port());
    for (const auto& test : cases)
    {
        const auto request = client.Open(test.verb, test.path);
        const auto result = Exchange(request.Get(), test.body, test.headers);
        EXPECT_EQ(ERROR_SUCCESS, result.error) << test.before;
        EXPECT_EQ(200, result.status);
        EXPECT_EQ(test.before + HostLine(server) + test.after, server.Requests().back());
    }
    EXPECT_EQ(1U, server.ConnectionCount());
}

TEST(PosixWinHttpWire, SendsAgentReferrerAndAcceptedTypes)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, ""); }));
    const HttpClient client(server.Port(), L"127.0.0.1", L"Agent/1");
    LPCWSTR types[] = {L"text/a", L"text/b", nullptr};
    const HttpHandle request(WinHttpOpenRequest(client.Connection(), L"GET", L"/", L"HTTP/1.1", L"http://from/", types, 0));
    EXPECT_EQ(ERROR_SUCCESS, Exchange(request.Get()).error);
    EXPECT_EQ("GET / HTTP/1.1\r\n" + HostLine(server) + "Referer: http://from/\r\nAccept: text/a, text/b\r\nUser-Agent: Agent/1\r\n\r\n",
              server.Requests().back());
}

TEST(PosixWinHttpWire, AddsHeadersAsTheirModifiersSay)
{
    constexpr DWORD kAdd = WINHTTP_ADDREQ_FLAG_ADD;
    constexpr DWORD kNew = WINHTTP_ADDREQ_FLAG_ADD_IF_NEW;
    constexpr DWORD kComma = WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA;
    constexpr DWORD kReplace = WINHTTP_ADDREQ_FLAG_REPLACE;
    struct Case
    {
        const wchar_t* present;
        const wchar_t* added;
        DWORD modifiers;
        DWORD error;
        const char* lines;
    };
    const Case cases[] = {
        {L"", L"A: 1", kAdd, 0, "A: 1\r\n"},
        {L"A: 1", L"a: 2", kAdd, 0, "A: 1\r\na: 2\r\n"},
        {L"A: 1", L"a: 2", kAdd | kComma, 0, "A: 1, 2\r\n"},
        {L"A: 1", L"a: 2", kComma, 0, "A: 1, 2\r\n"},
        {L"B: 1", L"A: 2", kComma, 0, "B: 1\r\nA: 2\r\n"},
        {L"A: 1\r\nA: 2", L"a: 3", kReplace, 0, "a: 3\r\nA: 2\r\n"},
        {L"A: 1\r\nB: 2", L"a:", kReplace, 0, "B: 2\r\n"},
        {L"A: 1", L"B: 2", kReplace, 12150, "A: 1\r\n"},
        {L"A: 1", L"B: 2", kReplace | kAdd, 0, "A: 1\r\nB: 2\r\n"},
        {L"A: 1", L"a: 2", kReplace | kAdd, 0, "a: 2\r\n"},
        {L"A: 1", L"a: 2", kNew, 12155, "A: 1\r\n"},
        {L"A: 1", L"b: 2", kNew, 0, "A: 1\r\nb: 2\r\n"},
        {L"", L"A: 1\nB:2 \r\n\r\nC : 3\r", kAdd, 0, "A: 1\r\nB: 2\r\nC: 3\r\n"},
        {L"", L"A: 1\r\nno colon", kAdd, 12153, "A: 1\r\n"},
        {L"", L": x", kAdd, 12153, ""},
        {L"", L"Accept: x\nExpect: 100-continue", kAdd, 0, "Accept: x\r\nExpect: 100-continue\r\n"},
    };
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, ""); }));
    const HttpClient client(server.Port());
    for (const auto& test : cases)
    {
        const auto request = client.Open();
        ASSERT_NE(FALSE, WinHttpAddRequestHeaders(request.Get(), test.present, kNulTerminated, kAdd));
        EXPECT_EQ(test.error, ErrorOfCall(WinHttpAddRequestHeaders(request.Get(), test.added, kNulTerminated, test.modifiers)));
        EXPECT_EQ(ERROR_SUCCESS, Exchange(request.Get()).error);
        EXPECT_EQ("GET / HTTP/1.1\r\n" + HostLine(server) + test.lines + "\r\n", server.Requests().back());
    }
    const auto request = client.Open();
    EXPECT_NE(FALSE, WinHttpAddRequestHeaders(request.Get(), L"A: 1 and more", 4, kAdd));
    EXPECT_EQ(12153U, ErrorOfCall(WinHttpAddRequestHeaders(request.Get(), L"B: \0x", 5, kAdd)));
    EXPECT_EQ(ERROR_SUCCESS, Exchange(request.Get()).error);
    EXPECT_EQ("1", HeaderValue(server.Requests().back(), "A"));
}

TEST(PosixWinHttpWire, StreamsBodiesOfAnySize)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, "ok"); }));
    const HttpClient client(server.Port());
    const auto body = Pattern(1'500'000);
    for (const std::size_t piece : {std::size_t{1'499'999}, std::size_t{65'536}, std::size_t{16'384}, std::size_t{7'777}})
    {
        const auto request = client.Open(L"POST", L"/up");
        const auto length = L"Content-Length: " + std::to_wstring(body.size()) + L"\r\n";
        ASSERT_NE(FALSE, WinHttpSendRequest(request.Get(), length.c_str(), kNulTerminated, nullptr, 0, 0, 0));
        for (std::size_t at = 0; at < body.size(); at += piece)
        {
            DWORD written = 0;
            const auto count = static_cast<DWORD>(std::min(piece, body.size() - at));
            ASSERT_NE(FALSE, WinHttpWriteData(request.Get(), body.data() + at, count, &written)) << GetLastError();
            ASSERT_EQ(count, written);
        }
        EXPECT_EQ(ERROR_WINHTTP_INCORRECT_HANDLE_STATE, ErrorOfCall(WinHttpWriteData(request.Get(), "x", 1, nullptr)));
        EXPECT_EQ("ok", ReadReply(request.Get()).body);
        const auto recorded = server.Requests().back();
        EXPECT_EQ("POST /up HTTP/1.1\r\n" + HostLine(server) + "Content-Length: 1500000\r\n\r\n" + body, recorded);
    }
    EXPECT_EQ(1U, server.ConnectionCount());
}

TEST(PosixWinHttpWire, TakesServersAsNamesAndAddresses)
{
    RawServer server(AnswerEach([](const std::string& request) { return HttpReply(200, HeaderValue(request, "Host")); }), "::1");
    for (const wchar_t* const name : {L"::1", L"[::1]"})
        EXPECT_EQ("[::1]:" + std::to_string(server.Port()), HttpClient(server.Port(), name).Get().body);
    for (const wchar_t* const name : {L"", L"name.invalid", L"localhost/x", L"localhost:80", L"http://localhost", L"a@localhost", L"a b",
                                      L"[::1", L"%6c", L"x\\y", L"1:2:3", L"a\r\nb"})
        EXPECT_EQ(ERROR_WINHTTP_NAME_NOT_RESOLVED, HttpClient(server.Port(), name).Get().error) << name;
}

TEST(PosixWinHttpWire, GoesThroughTheProxyOfTheEnvironment)
{
    RawServer proxy(AnswerEach([](const std::string& request) { return HttpReply(200, request); }));
    RawServer direct(AnswerEach([](const std::string&) { return HttpReply(200, "direct"); }));
    const auto address = "http://127.0.0.1:" + std::to_string(proxy.Port());
    ::setenv("http_proxy", address.c_str(), 1);
    ::setenv("no_proxy", "localhost", 1);
    EXPECT_EQ("GET http://name.invalid:8080/a%20b?c HTTP/1.1\r\nHost: name.invalid:8080\r\n\r\n",
              HttpClient(8080, L"name.invalid").Get(L"/a b?c").body);
    EXPECT_EQ("direct", HttpClient(direct.Port(), L"localhost").Get().body);
    ::unsetenv("http_proxy");
    ::unsetenv("no_proxy");
}

// What comes back.

TEST(PosixWinHttpReply, ReadsEveryFormOfBody)
{
    struct Case
    {
        const char* reply;
        int status;
        const char* body;
        const wchar_t* contentLength; ///< null: none
    };
    const Case cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc", 200, "abc", L"3"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 200, "", L"0"},
        {"HTTP/1.1 204 No Content\r\n\r\n", 204, "", nullptr},
        {"HTTP/1.1 100 Continue\r\nContent-Length: 9\r\n\r\nHTTP/1.1 103 Hints\r\nLocation: /x\r\n\r\nHTTP/1.1 404 No\r\nContent-Length: "
         "1\r\n\r\n-",
         404, "-", L"1"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4\r\ndefg\r\n0\r\nTrailer: x\r\n\r\n", 200, "abcdefg", nullptr},
        {"HTTP/1.0 500 Bad\r\n\r\nuntil the end", 500, "until the end", nullptr},
        {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 2\r\n\r\nzz", 200, "zz", L"2"},
        {"HTTP/1.1 302 Found\r\nContent-Length: 1\r\n\r\nx", 302, "x", L"1"},
        {"HTTP/1.1 304 Same\r\nContent-Length: 77\r\n\r\n", 304, "", L"77"},
    };
    for (const auto& test : cases)
    {
        RawServer server([&](RawConnection& connection) {
            connection.ReadRequest();
            connection.Send(test.reply);
        });
        const HttpClient client(server.Port());
        const auto request = client.Open();
        const auto result = Exchange(request.Get());
        EXPECT_EQ(ERROR_SUCCESS, result.error) << test.reply;
        EXPECT_EQ(test.status, result.status);
        EXPECT_EQ(test.body, result.body);
        wchar_t text[16] = {};
        DWORD size = sizeof(text);
        EXPECT_EQ(test.contentLength != nullptr ? 0U : 12150U,
                  ErrorOfCall(WinHttpQueryHeaders(request.Get(), WINHTTP_QUERY_CONTENT_LENGTH, nullptr, text, &size, nullptr)));
        EXPECT_EQ(std::wstring(test.contentLength != nullptr ? test.contentLength : L""), text);
    }
}

TEST(PosixWinHttpReply, HoldsBackAServerThatNobodyReads)
{
    const auto body = Pattern(8'000'000);
    Gate sentAll;
    RawServer server([&](RawConnection& connection) {
        connection.ReadRequest();
        connection.Send(HttpReply(200, body));
        sentAll.Open();
        connection.AwaitEnd();
    });
    const HttpClient client(server.Port());
    const auto request = client.Open();
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get()));
    ASSERT_NE(FALSE, WinHttpReceiveResponse(request.Get(), nullptr));
    std::string read;
    std::array<char, 1000> piece = {};
    for (DWORD count = 1; count != 0; read.append(piece.data(), count))
    {
        ASSERT_NE(FALSE, WinHttpReadData(request.Get(), piece.data(), static_cast<DWORD>(piece.size()), &count));
        DWORD available = 0;
        ASSERT_NE(FALSE, WinHttpQueryDataAvailable(request.Get(), &available));
        ASSERT_LE(available, 600'000U);
    }
    EXPECT_TRUE(sentAll.Wait());
    EXPECT_EQ(body, read);
}

// Connections.

TEST(PosixWinHttpConnections, AreReusedAndReplacedWhenDead)
{
    RawServer server([](RawConnection& connection) {
        for (int requests = 0; requests < 3; ++requests)
        {
            connection.ReadRequest();
            connection.Send(HttpReply(requests == 1 ? 404 : 200, Pattern(300'000)));
        }
    });
    const HttpClient client(server.Port());
    for (int request = 0; request < 9; ++request)
    {
        const auto result = Exchange(client.Open(L"POST").Get(), "body");
        EXPECT_EQ(ERROR_SUCCESS, result.error);
        EXPECT_EQ(Pattern(300'000), result.body);
    }
    EXPECT_EQ(3U, server.ConnectionCount());
    // A reply that was not read to its end takes its connection with it, and nothing else.
    {
        const auto request = client.Open();
        ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get()));
        ASSERT_NE(FALSE, WinHttpReceiveResponse(request.Get(), nullptr));
    }
    EXPECT_EQ(ERROR_SUCCESS, client.Get().error);
    EXPECT_EQ(5U, server.ConnectionCount());
}

TEST(PosixWinHttpConnections, ServeManyThreads)
{
    constexpr std::size_t kThreads = 6;
    RawServer server(AnswerEach([](const std::string& request) { return HttpReply(200, request.substr(request.find("\r\n\r\n") + 4)); }));
    const HttpClient client(server.Port());
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < kThreads; ++thread)
    {
        threads.emplace_back([&client, thread] {
            for (std::size_t request = 0; request < 20; ++request)
            {
                WinHttpSetTimeouts(client.Session(), 0, 20'000, 20'000, 20'000);
                const auto body = Pattern(thread * 1000 + request);
                const auto result = Exchange(client.Open(L"POST").Get(), body);
                EXPECT_EQ(ERROR_SUCCESS, result.error);
                EXPECT_EQ(body, result.body);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(kThreads * 20, server.Requests().size());
    EXPECT_LE(server.ConnectionCount(), kThreads);
}

// Failures.

TEST(PosixWinHttpFailures, HaveTheirErrorValues)
{
    struct Case
    {
        const char* reply;
        bool reset;
        DWORD error;
        const char* body;
    };
    const Case cases[] = {
        {"", false, 12030, ""},
        {"", true, 12030, ""},
        {"HTTP/1.1 200 OK\r\nContent-Le", true, 12030, ""},
        {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", false, 12030, "abc"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n", false, 12030, ""},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc", false, 12030, "abc"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n", false, 12030, ""},
        {"SSH-2.0-server\r\nand more\r\n\r\n", false, 12152, ""},
        {"\x16\x03\x01", false, 12152, ""},
        {"HTTP/1.1 abc\r\n\r\n", false, 12152, ""},
    };
    for (const auto& test : cases)
    {
        RawServer server([&](RawConnection& connection) {
            connection.ReadRequest();
            connection.Send(test.reply);
            if (test.reset)
                connection.Reset();
        });
        const auto result = HttpClient(server.Port()).Get();
        EXPECT_EQ(test.error, result.error) << test.reply;
        EXPECT_EQ(test.body, result.body) << test.reply;
    }
}

TEST(PosixWinHttpFailures, StayWithTheRequest)
{
    RawServer server([](RawConnection& connection) {
        connection.ReadHead();
        connection.Reset();
    });
    const HttpClient client(server.Port());
    const auto request = client.Open(L"POST");
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get(), {}, L"Content-Length: 1000000000"));
    const auto block = Pattern(100'000);
    DWORD error = ERROR_SUCCESS;
    for (int count = 0; count < 10'000 && error == ERROR_SUCCESS; ++count)
        error = ErrorOfCall(WinHttpWriteData(request.Get(), block.data(), static_cast<DWORD>(block.size()), nullptr));
    EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, error);
    EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, ErrorOfCall(WinHttpWriteData(request.Get(), "x", 1, nullptr)));
    EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, ErrorOfCall(WinHttpReceiveResponse(request.Get(), nullptr)));
}

TEST(PosixWinHttpFailures, TimeOutWithoutProgress)
{
    RawServer server([](RawConnection& connection) {
        if (connection.ReadHead().starts_with("GET /part"))
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
        connection.Hold();
    });
    const HttpClient client(server.Port());
    ASSERT_NE(FALSE, WinHttpSetTimeouts(client.Session(), 0, 0, 0, 100));
    EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, client.Get(L"/silent").error);
    const auto part = client.Get(L"/part");
    EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, part.error);
    EXPECT_EQ("abc", part.body);

    const auto request = client.Open(L"POST");
    ASSERT_NE(FALSE, WinHttpSetTimeouts(request.Get(), 0, 0, 100, 0));
    const auto body = Pattern(32'000'000);
    EXPECT_EQ(ERROR_WINHTTP_TIMEOUT, SendWhole(request.Get(), body));
}

TEST(PosixWinHttpFailures, SlowIsNotStuck)
{
    RawServer server([](RawConnection& connection) {
        connection.ReadRequest();
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\n");
        for (int count = 0; count < 8; ++count)
        {
            // Longer in all than the timeout, shorter each: the passing of time is what is tested.
            Gate().Wait(std::chrono::milliseconds(150));
            connection.Send("x");
        }
    });
    const HttpClient client(server.Port());
    ASSERT_NE(FALSE, WinHttpSetTimeouts(client.Session(), 0, 0, 0, 1000));
    const auto result = client.Get();
    EXPECT_EQ(ERROR_SUCCESS, result.error);
    EXPECT_EQ("xxxxxxxx", result.body);
}

TEST(PosixWinHttpFailures, EarlyRefusalsAreStillRead)
{
    const auto block = Pattern(100'000);
    // The server stops reading, answers and waits, or answers and ends in order.
    for (const bool ends : {false, true})
    {
        Gate answered;
        RawServer server([&](RawConnection& connection) {
            connection.ReadHead();
            connection.Skip(1000);
            connection.Send(HttpReply(401, "no"));
            answered.Open();
            if (!ends)
                connection.Hold();
            connection.AwaitEnd();
        });
        const HttpClient client(server.Port());
        const auto request = client.Open(L"POST");
        ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get(), {}, L"Content-Length: 100000000"));
        for (int count = 0; count < 1000; ++count)
            ASSERT_EQ(ERROR_SUCCESS, ErrorOfCall(WinHttpWriteData(request.Get(), block.data(), static_cast<DWORD>(block.size()), nullptr)));
        const auto result = ReadReply(request.Get());
        EXPECT_EQ(ERROR_SUCCESS, result.error);
        EXPECT_EQ(401, result.status);
        EXPECT_EQ("no", result.body);
    }
}

// Redirects.

TEST(PosixWinHttpRedirects, ChangeTheRequestAsTheirStatusSays)
{
    struct Case
    {
        const wchar_t* verb;
        const char* body;
        int status;
        const char* location;
        const char* line; ///< of the request that follows
        const char* sent; ///< with it
    };
    const Case cases[] = {
        {L"GET", "", 301, "/next", "GET /next HTTP/1.1", ""},
        {L"GET", "", 302, "next?x=1#part", "GET /a/next?x=1 HTTP/1.1", ""},
        {L"GET", "", 303, "../up/./x", "GET /up/x HTTP/1.1", ""},
        {L"GET", "", 307, "?q", "GET /a/b?q HTTP/1.1", ""},
        {L"GET", "", 308, "/sp ace\xC3\xA9", "GET /sp%20ace%c3%a9 HTTP/1.1", ""},
        {L"HEAD", "", 303, "/next", "HEAD /next HTTP/1.1", ""},
        {L"POST", "abc", 301, "/next", "GET /next HTTP/1.1", ""},
        {L"POST", "abc", 302, "/next", "GET /next HTTP/1.1", ""},
        {L"PUT", "abc", 303, "/next", "GET /next HTTP/1.1", ""},
        {L"DELETE", "", 302, "/next", "GET /next HTTP/1.1", ""},
        {L"POST", "abc", 307, "/next", "POST /next HTTP/1.1", "abc"},
        {L"PUT", "abc", 308, "/next", "PUT /next HTTP/1.1", "abc"},
        {L"DELETE", "", 308, "/next", "DELETE /next HTTP/1.1", ""},
    };
    for (const auto& test : cases)
    {
        RawServer server(AnswerEach([&test](const std::string& request) {
            const bool isFirst = request.find(" /a/b HTTP") != std::string::npos;
            const auto location = "Location: " + std::string(test.location) + "\r\n";
            const bool isHead = request.starts_with("HEAD");
            return isFirst ? HttpReply(test.status, isHead ? "" : "moved", location) : HttpReply(200, isHead ? "" : "there");
        }));
        const HttpClient client(server.Port());
        const auto result = Exchange(client.Open(test.verb, L"/a/b").Get(), test.body, L"Cookie: c=1\r\nContent-Type: t");
        EXPECT_EQ(ERROR_SUCCESS, result.error) << test.line;
        EXPECT_EQ(200, result.status);
        EXPECT_EQ(1U, server.ConnectionCount());
        const auto requests = server.Requests();
        ASSERT_EQ(2U, requests.size());
        EXPECT_EQ(test.line, requests[1].substr(0, requests[1].find("\r\n")));
        EXPECT_EQ(test.sent, requests[1].substr(requests[1].find("\r\n\r\n") + 4));
        EXPECT_EQ("c=1", HeaderValue(requests[1], "Cookie"));
        EXPECT_EQ(*test.sent != '\0' ? "3" : "", HeaderValue(requests[1], "Content-Length"));
    }
}

TEST(PosixWinHttpRedirects, KeepTheCookieFromOtherHosts)
{
    RawServer target(AnswerEach([](const std::string&) { return HttpReply(200, "there"); }));
    RawServer server(AnswerEach([&](const std::string& request) {
        const std::string host = request.find("/other") != std::string::npos ? "localhost" : "127.0.0.1";
        return HttpReply(302, "", "Location: http://user:word@" + host + ":" + std::to_string(target.Port()) + "/\r\n");
    }));
    const HttpClient client(server.Port());
    for (const bool other : {false, true})
    {
        const auto request = client.Open(L"GET", other ? L"/other" : L"/same");
        EXPECT_EQ("there", Exchange(request.Get(), {}, L"Cookie: c=1\r\nAuthorization: Basic x\r\nX-Other: y").body);
        EXPECT_EQ(other ? "" : "c=1", HeaderValue(target.Requests().back(), "Cookie"));
        EXPECT_EQ(other ? "" : "Basic x", HeaderValue(target.Requests().back(), "Authorization"));
        EXPECT_EQ("y", HeaderValue(target.Requests().back(), "X-Other"));
    }
}

TEST(PosixWinHttpRedirects, EndSomewhere)
{
    const auto last = [](const std::string& request) { return std::stoi(request.substr(request.find(' ') + 2)); };
    RawServer server(AnswerEach([&](const std::string& request) {
        const int left = last(request);
        return left == 0 ? HttpReply(200, "there") : HttpReply(302, "", "Location: /" + std::to_string(left - 1) + "\r\n");
    }));
    const HttpClient client(server.Port());
    EXPECT_EQ("there", client.Get(L"/10").body);
    EXPECT_EQ(ERROR_WINHTTP_REDIRECT_FAILED, client.Get(L"/11").error);

    for (const char* const nowhere : {"ftp://localhost/", "http://", "http://[::1/", "http://a b/", "http://localhost:99999/"})
    {
        RawServer lost(AnswerEach([&](const std::string&) { return HttpReply(301, "", "Location: " + std::string(nowhere) + "\r\n"); }));
        EXPECT_EQ(ERROR_WINHTTP_REDIRECT_FAILED, HttpClient(lost.Port()).Get().error) << nowhere;
    }
}

TEST(PosixWinHttpRedirects, CannotRepeatAStreamedBody)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(307, "", "Location: /next\r\n"); }));
    const HttpClient client(server.Port());
    const auto request = client.Open(L"POST");
    ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get(), {}, L"Content-Length: 3"));
    ASSERT_NE(FALSE, WinHttpWriteData(request.Get(), "abc", 3, nullptr));
    EXPECT_EQ(ERROR_WINHTTP_REDIRECT_FAILED, ErrorOfCall(WinHttpReceiveResponse(request.Get(), nullptr)));
}

// Handles.

TEST(PosixWinHttpHandles, AreChecked)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, "x"); }));
    HttpClient client(server.Port());
    auto request = client.Open();
    DWORD count = 0;
    char byte = 0;
    wchar_t text[8] = {};
    DWORD size = sizeof(text);
    EXPECT_EQ(12018U, ErrorOfCall(WinHttpSendRequest(client.Session(), nullptr, 0, nullptr, 0, 0, 0)));
    EXPECT_EQ(12018U, ErrorOfCall(WinHttpConnect(request.Get(), L"x", 1, 0) != nullptr));
    EXPECT_EQ(12018U, ErrorOfCall(WinHttpSetTimeouts(client.Connection(), 1, 1, 1, 1)));
    EXPECT_EQ(12019U, ErrorOfCall(WinHttpReceiveResponse(request.Get(), nullptr)));
    EXPECT_EQ(12019U, ErrorOfCall(WinHttpWriteData(request.Get(), "x", 1, &count)));
    EXPECT_EQ(12019U, ErrorOfCall(WinHttpReadData(request.Get(), &byte, 1, &count)));
    EXPECT_EQ(12019U, ErrorOfCall(WinHttpQueryDataAvailable(request.Get(), &count)));
    EXPECT_EQ(12019U, ErrorOfCall(WinHttpQueryHeaders(request.Get(), 19, nullptr, text, &size, nullptr)));
    EXPECT_EQ(87U, ErrorOfCall(WinHttpOpen(nullptr, 1, nullptr, nullptr, 0) != nullptr));
    EXPECT_EQ(87U, ErrorOfCall(WinHttpConnect(client.Session(), nullptr, 1, 0) != nullptr));
    EXPECT_EQ(87U, ErrorOfCall(client.Open(L"GET /x HTTP/1.1\r\nX:").Get() != nullptr));

    const auto closed = request.Get();
    request.Close();
    for (const HINTERNET handle : {closed, HINTERNET{nullptr}, HINTERNET{&byte}})
    {
        EXPECT_EQ(6U, ErrorOfCall(WinHttpSendRequest(handle, nullptr, 0, nullptr, 0, 0, 0)));
        EXPECT_EQ(6U, ErrorOfCall(WinHttpCloseHandle(handle)));
    }
}

TEST(PosixWinHttpHandles, OutliveTheirParents)
{
    RawServer server(AnswerEach([](const std::string&) { return HttpReply(200, "x"); }));
    HttpHandle session(WinHttpOpen(nullptr, 0, nullptr, nullptr, 0));
    HttpHandle connection(WinHttpConnect(session.Get(), L"127.0.0.1", server.Port(), 0));
    const HttpHandle request(WinHttpOpenRequest(connection.Get(), L"GET", L"/", nullptr, nullptr, nullptr, 0));
    session.Close();
    connection.Close();
    EXPECT_EQ("x", Exchange(request.Get()).body);
    EXPECT_EQ("x", Exchange(request.Get()).body); // and may be used again
    EXPECT_EQ(1U, server.ConnectionCount());
}

TEST(PosixWinHttpHandles, KeepTheirTimeouts)
{
    const HttpClient client(1);
    ASSERT_NE(FALSE, WinHttpSetTimeouts(client.Session(), 1, 2, 3, 4));
    const auto request = client.Open();
    ASSERT_NE(FALSE, WinHttpSetTimeouts(client.Session(), 5, 6, 7, 8));
    DWORD value = 9;
    ASSERT_NE(FALSE, WinHttpSetOption(request.Get(), WINHTTP_OPTION_SEND_TIMEOUT, &value, sizeof(value)));
    const DWORD options[] = {WINHTTP_OPTION_RESOLVE_TIMEOUT, WINHTTP_OPTION_CONNECT_TIMEOUT, WINHTTP_OPTION_SEND_TIMEOUT,
                             WINHTTP_OPTION_RECEIVE_TIMEOUT};
    const DWORD expected[] = {1, 2, 9, 4};
    for (std::size_t at = 0; at < 4; ++at)
    {
        DWORD size = sizeof(value);
        ASSERT_NE(FALSE, WinHttpQueryOption(request.Get(), options[at], &value, &size));
        EXPECT_EQ(expected[at], value);
    }
    DWORD size = 3;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOfCall(WinHttpQueryOption(request.Get(), options[0], &value, &size)));
    EXPECT_EQ(4U, size);
    EXPECT_EQ(ERROR_WINHTTP_INVALID_OPTION, ErrorOfCall(WinHttpSetOption(request.Get(), 1, &value, 4)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfCall(WinHttpSetOption(request.Get(), options[0], &value, 2)));
}
} // namespace
