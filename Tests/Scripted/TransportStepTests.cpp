// The transport step by step: what it asks of the platform, and what becomes of each step that fails.

#include "ScriptedWinHttp.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "WinHttpImpl.h"
#include "WinHttpImplRequest.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace
{

using Piece = WinHttpScript::Piece;

// A reply in memory that a test does not have to free.
struct Reply : ResponseBuffer
{
    Reply() = default;
    ~Reply() { std::free(data); }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    [[nodiscard]] std::string Text() const { return std::string(data == nullptr ? "" : data, length); }
};

class TransportSteps : public testing::Test
{
protected:
    TransportSteps()
    {
        g_script = {};
        MakeObjects();
    }

    void MakeObjects()
    {
        session = std::make_shared<WinHttpSession>();
        connection = std::make_shared<WinHttpConnection>();
        request = std::make_shared<WinHttpRequest>(session);
    }

    ResultCode InitialiseConnection(std::uint64_t send = 0, std::uint64_t receive = 0)
    {
        return connection->Initialise(L"server", 8080, session, send, receive);
    }

    ResultCode InitialiseRequest(const wchar_t* path = L"/path") { return request->Initialise(path, L"GET", connection, nullptr, 0); }

    ResultCode GetFile(const CancelEvent* cancelEvent = nullptr, std::uint32_t offsetLow = 0, std::uint32_t offsetHigh = 0)
    {
        return request->SendRequestGetResponse(target.wstring(), cancelEvent, progress, true, offsetLow, offsetHigh);
    }

    [[nodiscard]] std::string TargetContent() const
    {
        std::ifstream file(target, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void TearDown() override { std::filesystem::remove(target); }

    const std::filesystem::path target =
        std::filesystem::temp_directory_path() / ("quendra-steps-" + std::to_string(std::random_device()()));
    TraceCapture trace;
    std::shared_ptr<WinHttpSession> session;
    std::shared_ptr<WinHttpConnection> connection;
    std::shared_ptr<WinHttpRequest> request;
    std::shared_ptr<IProgressCallback> progress;
    Reply reply;
};

TEST_F(TransportSteps, AFailingStepEndsWithItsMessageAndCode)
{
    struct Case
    {
        const char* step;
        const char* fails;
        int call;
        DWORD error;
        std::function<ResultCode()> run;
        ResultCode expected;
        std::vector<std::string> messages;
    };
    const auto newSession = [this] { return session->Initialise(); };
    const auto newConnection = [this] { return InitialiseConnection(); };
    const auto newRequest = [this] { return InitialiseRequest(); };
    const auto getInMemory = [this] { return request->GetResponse(reply); };
    const auto getFile = [this] { return GetFile(); };
    const auto setToken = [this] { session->SetSessionToken(L"abc"); };
    const auto startRequest = [this, setToken] {
        setToken();
        return request->StartRequest(5);
    };

    const std::vector<Case>
        cases =
            {
                {"session", "WinHttpOpen", 1, 12004, newSession, 0x80072EE4, {"WinHttpOpen failed, error code: 12004"}},
                {"session", "WinHttpSetTimeouts", 1, 87, newSession, 0x80070057, {"WinHttpSetTimeouts failed, error code: 87"}},
                {"session, an error above 16 bits",
                 "WinHttpOpen",
                 1,
                 0x12345,
                 newSession,
                 0x80072345,
                 {"WinHttpOpen failed, error code: 74565"}},
                {"session, a negative error",
                 "WinHttpOpen",
                 1,
                 0x80070005,
                 newSession,
                 0x80070005,
                 {"WinHttpOpen failed, error code: -2147024891"}},
                {"connection", "WinHttpConnect", 1, 12005, newConnection, 0x80072EE5, {"WinHttpConnect failed, error code: 12005"}},
                {"connection, timeouts only warn", "WinHttpSetTimeouts", 1, 6, newConnection, 0, {}},
                {"request", "WinHttpOpenRequest", 1, 12018, newRequest, 0x80072EF2, {"WinHttpOpenRequest failed, error code: 12018"}},
                {"header",
                 "WinHttpAddRequestHeaders",
                 1,
                 12153,
                 [this] { return request->AddHeader(L"a", L"b"); },
                 12153,
                 {"Failed to add header [a: b], error: 12153"}},
                {"form field",
                 "WinHttpAddRequestHeaders",
                 1,
                 8,
                 [this] {
        return request->AppendFormData("a", L"b", true);
                 },
                 8,
                 {"Failed to AddRequestHeaders - 8"}},
                {"start, cookie", "WinHttpAddRequestHeaders", 1, 8, startRequest, 8, {"WinHttpAddRequestHeaders failed, error code: 8"}},
                {"start, send", "WinHttpSendRequest", 1, 12029, startRequest, 12029, {"WinHttpSendRequest failed, error code: 12029"}},
                {"post data", "WinHttpWriteData", 1, 12030, [this] { return request->SendPostData(); }, 12030, {}},
                {"memory, accept", "WinHttpAddRequestHeaders", 1, 8, getInMemory, 8, {}},
                {"memory, cookie",
                 "WinHttpAddRequestHeaders",
                 2,
                 8,
                 [=] {
        setToken();
        return getInMemory();
                 },
                 8,
                 {"WinHttpAddRequestHeaders failed, error code: 8"}},
        {"memory, send", "WinHttpSendRequest", 1, 12007, getInMemory, 12007, {"WinHttpSendRequest failed, error code: 12007"}},
        {"memory, receive", "WinHttpReceiveResponse", 1, 12002, getInMemory, 12002, {"WinHttpReceiveResponse failed, error code: 12002"}},
        {"memory, status size", "WinHttpQueryHeaders", 1, 12150, getInMemory, 12150, {"WinHttpQueryHeaders failed, error code: 12150"}},
        {"memory, status", "WinHttpQueryHeaders", 2, 12150, getInMemory, 12150, {"WinHttpQueryHeaders failed, error code: 12150"}},
        {"file, accept", "WinHttpAddRequestHeaders", 1, 8, getFile, 8, {"WinHttpAddRequestHeaders failed, error code: 8"}},
        {"file, cookie",
         "WinHttpAddRequestHeaders",
         2,
         8,
         [=] {
        setToken();
        return getFile();
         },
         8,
         {"WinHttpAddRequestHeaders failed, error code: 8"}},
        {"file, send",
         "WinHttpSendRequest",
         1,
         12029,
         getFile,
         12029,
         {"WinHttpSendRequest failed, error code: 12029", "SendRequest failed, error code: 12029"}},
        {"file, receive", "WinHttpReceiveResponse", 1, 12030, getFile, 12030, {"WinHttpReceiveResponse failed, error code: 12030"}},
        {"file, status size", "WinHttpQueryHeaders", 1, 12150, getFile, 12150, {"WinHttpQueryHeaders failed, error code: 12150"}},
        {"file, status", "WinHttpQueryHeaders", 2, 12150, getFile, 12150, {"WinHttpQueryHeaders failed, error code: 12150"}},
        {"option",
         "WinHttpSetOption",
         1,
         12009,
         [this] { return session->SetOption(3, nullptr, 0); },
         0x80072EE9,
         {"WinHttpSetOption failed, error code: 12009"}},
        {"option query",
         "WinHttpQueryOption",
         1,
         12009,
         [this] {
        DWORD length = 0;
        return session->QueryOption(3, nullptr, length);
         },
         0x80072EE9,
         {"WinHttpQueryOption failed, error code: 12009"}},
        };
    for (const Case& step : cases)
    {
        SCOPED_TRACE(std::string(step.step) + ": " + step.fails);
        g_script = {};
        MakeObjects();
        g_script.Fail(step.fails, step.error, step.call);
        trace.Clear();
        EXPECT_EQ(step.run(), step.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), step.messages);
        EXPECT_FALSE(std::filesystem::exists(target)) << "a refused download touches no file";
    }
}

TEST_F(TransportSteps, TheSessionOpensWithItsOwnTimeouts)
{
    EXPECT_EQ(session->Initialise(), 0U);
    EXPECT_EQ(g_script.timeouts, (std::vector<std::vector<int>>{{60000, 60000, 300000, 300000}}));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Successfully initialised http session"));
}

TEST_F(TransportSteps, ConnectionsPutTheSettingsTimeoutsOnTheSession)
{
    EXPECT_EQ(InitialiseConnection(), 0U);
    EXPECT_EQ(InitialiseConnection(0, 600000), 0U);
    EXPECT_EQ(InitialiseConnection((std::uint64_t{1} << 32) + 7, 0), 0U) << "the low half of an override counts";
    EXPECT_EQ(g_script.timeouts,
              (std::vector<std::vector<int>>{{0, 60000, 60000, 60000}, {0, 60000, 60000, 600000}, {0, 60000, 7, 60000}}));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Calling WinHttpSetTimeouts. CONN:60000, RES:0, SEND:60000, RECV:60000"));

    g_script.Fail("WinHttpSetTimeouts", 6, 4);
    EXPECT_EQ(InitialiseConnection(), 0U);
    EXPECT_TRUE(trace.Has(EVT_WARNING, "WinHttpSetTimeouts failed with error code: [6]. Failed to override timeout defaults."));
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "Attach handle non-null"), 3U);
}

TEST_F(TransportSteps, AFailureKeepsItsReasonWhileHandlesAreClosed)
{
    EXPECT_EQ(session->Initialise(), 0U);
    g_script.Fail("WinHttpOpen", 12004, 2);
    EXPECT_EQ(session->Initialise(), 0x80072EE4U);
    EXPECT_EQ(g_script.closed.size(), 1U);
    EXPECT_EQ(GetLastError(), 12004U);
}

TEST_F(TransportSteps, AttachKeepsOneHandleAndClosesTheOther)
{
    int first = 0;
    int second = 0;
    EXPECT_TRUE(session->Attach(&first));
    EXPECT_FALSE(trace.Has(EVT_ERROR, "Attach handle non-null"));
    EXPECT_TRUE(session->Attach(&first)) << "the same handle again stays open";
    EXPECT_TRUE(g_script.closed.empty());
    EXPECT_TRUE(session->Attach(&second));
    EXPECT_EQ(g_script.closed, std::vector<HINTERNET>{&first});
    EXPECT_FALSE(session->Attach(nullptr));
    EXPECT_EQ(g_script.closed, (std::vector<HINTERNET>{&first, &second}));
    session->Close();
    session->Close();
    EXPECT_EQ(g_script.closed.size(), 2U);
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "Attach handle non-null"), 3U);
}

TEST_F(TransportSteps, HeadersAreAddedInTheStatedWays)
{
    session->SetSessionToken(L"abc");
    EXPECT_EQ(request->AddHeader(L"qd_start", L"true"), 0U);
    EXPECT_EQ(request->AppendFormData("a", L"x y~", false), 0U);
    EXPECT_EQ(request->AppendFormData("b", L"1", true), 0U);
    EXPECT_EQ(request->GetPostDataLength(), 12U);
    EXPECT_EQ(request->GetResponse(reply), 0U);

    struct Expected
    {
        const wchar_t* text;
        DWORD modifiers;
    };
    const std::vector<Expected> expected = {
        {L"qd_start: true", 0x60000000},
        {L"Content-Type: application/x-www-form-urlencoded; charset=UTF-8", 0xA0000000},
        {L"Content-Type: application/x-www-form-urlencoded; charset=UTF-8", 0xA0000000},
        {L"Accept: application/json", 0x60000000},
        {L"Cookie: session_token=abc", 0x40000000},
    };
    ASSERT_EQ(g_script.headers.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_TRUE(g_script.headers[i].text == expected[i].text) << i;
        EXPECT_EQ(g_script.headers[i].modifiers, expected[i].modifiers) << i;
    }
    EXPECT_EQ(g_script.body, "a=x+y%7E&b=1");
    EXPECT_EQ(request->GetPostDataLength(), 0U) << "a successful send forgets the body";
}

TEST_F(TransportSteps, AFailedSendKeepsTheBodyAndPostDataNever)
{
    EXPECT_EQ(request->AppendFormData("a", L"1", true), 0U);
    g_script.Fail("WinHttpSendRequest", 12029);
    EXPECT_EQ(request->GetResponse(reply), 12029U);
    EXPECT_EQ(request->GetPostDataLength(), 3U);
    g_script.Fail("WinHttpWriteData", 12030);
    EXPECT_EQ(request->SendPostData(), 12030U);
    EXPECT_EQ(request->GetPostDataLength(), 0U);
}

TEST_F(TransportSteps, NothingThatBreaksAHeaderIsHandedOver)
{
    const std::wstring nul(L"a\0b", 3);
    for (const std::wstring& bad : {std::wstring(L"a\rb"), std::wstring(L"a\nb"), nul})
    {
        EXPECT_EQ(request->AddHeader(L"qd_new_path", bad), 87U);
        EXPECT_EQ(request->AddHeader(bad, L"x"), 87U);
        EXPECT_EQ(request->Initialise(bad, L"GET", connection, nullptr, 0), 0x80070057U);
        session->SetSessionToken(bad);
        EXPECT_EQ(request->StartRequest(0), 87U);
        EXPECT_EQ(request->GetResponse(reply), 87U);
        EXPECT_EQ(GetFile(), 87U);
    }
    EXPECT_TRUE(g_script.requests.empty());
    EXPECT_EQ(g_script.Count("WinHttpSendRequest"), 0);
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "Refused a line break or NUL in a header"), 6U);
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "Refused a line break or NUL in the session token"), 9U);
    for (const WinHttpScript::Header& header : g_script.headers)
        EXPECT_EQ(header.text.rfind(L"Accept: ", 0), 0U);
}

TEST_F(TransportSteps, AFieldBeyondItsLimitIsNotSentCutShort)
{
    const std::size_t room = 1024 - std::string("password=&").size();
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room, L'x'), false), 0U);
    EXPECT_EQ(request->GetPostDataLength(), 1024U);
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room + 1, L'x'), false), 122U);
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room + 1, L'y'), true), 0U) << "the last field has no separator";
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room / 3 + 1, L'/'), false), 122U) << "its encoded text counts";
    EXPECT_EQ(request->GetPostDataLength(), 2048U);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Form field [password] is longer than 1024 characters"));
    EXPECT_FALSE(trace.Mentions("xxx"));
}

TEST_F(TransportSteps, StartRequestAnnouncesAnyLengthInAHeaderAlone)
{
    EXPECT_EQ(request->StartRequest(0), 0U);
    EXPECT_EQ(request->StartRequest(0x1'0000'0001), 0U);
    ASSERT_EQ(g_script.sendHeaders.size(), 2U);
    EXPECT_TRUE(g_script.sendHeaders[0] == L"Content-Length: 0\r\n");
    EXPECT_TRUE(g_script.sendHeaders[1] == L"Content-Length: 4294967297\r\n");
}

TEST_F(TransportSteps, RepliesInMemoryAreReadPieceByPiece)
{
    struct Case
    {
        const char* what;
        std::deque<Piece> pieces;
        ResultCode expected;
        std::string text;
    };
    const std::string twenty(20, 'a');
    const std::vector<Case> cases = {
        {"no body", {}, 0, ""},
        {"one piece", {{20, twenty, 0, 0}}, 0, twenty},
        {"two pieces", {{3, "abc", 0, 0}, {2, "de", 0, 0}}, 0, "abcde"},
        {"a failing query ends the body", {{3, "abc", 0, 0}, {0, "", 12030, 0}}, 0, "abc"},
        {"what a read leaves unfilled is zero", {{5, "ab", 0, 0}, {1, "c", 0, 0}}, 0, std::string("ab\0\0\0c", 6)},
        {"a failing read ends the body", {{3, "abc", 0, 0}, {2, "", 0, 12030}, {1, "x", 0, 0}}, 0, "abc"},
        {"a read of nothing ends the body", {{3, "", 0, 0}, {1, "x", 0, 0}}, 0, std::string(3, '\0')},
        {"too much at once", {{3, "abc", 0, 0}, {0x500001, "", 0, 0}}, 122, "abc"},
    };
    for (const Case& body : cases)
    {
        SCOPED_TRACE(body.what);
        g_script = {};
        g_script.pieces = body.pieces;
        Reply read;
        EXPECT_EQ(request->ReadResponse(read), body.expected);
        EXPECT_EQ(read.Text(), body.text);
        EXPECT_EQ(read.data == nullptr, body.text.empty());
        EXPECT_TRUE(read.data == nullptr || read.data[read.length] == '\0');
    }
}

TEST_F(TransportSteps, TheLargestPieceIsStillRead)
{
    g_script.pieces = {{0x500000, std::string(0x500000, 'x'), 0, 0}};
    EXPECT_EQ(request->ReadResponse(reply), 0U);
    EXPECT_EQ(reply.length, 0x500000U);
}

TEST_F(TransportSteps, TheStatusIsStoredAndNotJudgedInMemory)
{
    EXPECT_EQ(request->GetHTTPStatus(), 0U);
    g_script.status = L"404";
    EXPECT_EQ(request->ReceiveResponse(reply), 0U);
    EXPECT_EQ(request->GetHTTPStatus(), 404U);
}

struct Blocks final : IProgressCallback
{
    void OnBlock(std::uint64_t blockSize, std::uint64_t position) override
    {
        text += std::to_string(blockSize) + "@" + std::to_string(position) + " ";
    }
    void OnStatusSize(std::uint32_t size) override { text += "status:" + std::to_string(size / sizeof(wchar_t)) + " "; }
    std::string text;
};

TEST_F(TransportSteps, DownloadsGoIntoTheFileAndAreCounted)
{
    const auto blocks = std::make_shared<Blocks>();
    progress = blocks;
    g_script.pieces = {{3, "abc", 0, 0}, {2, "de", 0, 0}};
    g_script.contentLength = L"5";
    EXPECT_EQ(GetFile(), 0U);
    EXPECT_EQ(TargetContent(), "abcde");
    EXPECT_EQ(blocks->text, "status:4 3@3 2@5 ");
    EXPECT_EQ(g_script.headers.at(0).modifiers, 0x40000000U);
    EXPECT_TRUE(trace.Has(EVT_INFO, "No bytes to read [0]"));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Returning [0]"));

    g_script.pieces = {{2, "XY", 0, 0}};
    g_script.contentLength = L"2";
    EXPECT_EQ(GetFile(nullptr, 1, 0), 0U) << "an offset writes into the file that is there";
    EXPECT_EQ(TargetContent(), "aXYde");

    g_script.pieces = {{2, "12", 0, 0}};
    EXPECT_EQ(GetFile(nullptr, 0, 1), 0U) << "a multiple of 4 GiB truncates";
    EXPECT_EQ(TargetContent(), "12");
}

TEST_F(TransportSteps, ADownloadThatFailsSaysSoAndKeepsWhatItWrote)
{
    struct Case
    {
        const char* what;
        std::wstring status;
        std::wstring contentLength;
        std::deque<Piece> pieces;
        ResultCode expected;
        std::string content;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"another status", L"206", L"", {{3, "abc", 0, 0}}, 20206, "before", ""},
        {"not found", L"404", L"", {}, 20404, "before", ""},
        {"query fails",
         L"200",
         L"",
         {{3, "abc", 0, 0}, {0, "", 12002, 0}},
         12002,
         "abc",
         "WinHttpQueryDataAvailable failed, error code: 12002"},
        {"read fails", L"200", L"", {{3, "abc", 0, 0}, {3, "", 0, 12030}}, 12030, "abc", "WinHttpReadData failed, error code: 12030"},
        {"ends early",
         L"200",
         L"5000000000",
         {{3, "abc", 0, 0}},
         12030,
         "abc",
         "The body ended after 3 of 5000000000 bytes, error code: 12030"},
        {"ends at once", L"200", L"3", {}, 12030, "", "The body ended after 0 of 3 bytes, error code: 12030"},
    };
    for (const Case& download : cases)
    {
        SCOPED_TRACE(download.what);
        std::ofstream(target, std::ios::binary) << "before";
        g_script = {};
        g_script.status = download.status;
        g_script.contentLength = download.contentLength;
        g_script.pieces = download.pieces;
        trace.Clear();
        // What an earlier call left behind is no reason for an end.
        SetLastError(1234);
        EXPECT_EQ(GetFile(), download.expected);
        EXPECT_EQ(TargetContent(), download.content);
        EXPECT_EQ(trace.Messages(EVT_ERROR), download.message.empty() ? std::vector<std::string>{} : std::vector{download.message});
    }
}

TEST_F(TransportSteps, AFileThatCannotBeOpenedOrResumedIsReported)
{
    EXPECT_EQ(GetFile(nullptr, 5, 0), 2U) << "there is no file to resume";
    EXPECT_TRUE(trace.Has(EVT_ERROR, "CreateFile failed, error code: 2"));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Returning [2]"));
    EXPECT_FALSE(std::filesystem::exists(target));
    const std::wstring missing = (target / L"no" / L"folder").wstring();
    EXPECT_EQ(request->SendRequestGetResponse(missing, nullptr, nullptr, true, 0, 0), 3U);
}

TEST_F(TransportSteps, ACancelEventEndsADownloadAfterItsBlock)
{
    const CancelEvent cancel{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    struct Cancelling final : IProgressCallback
    {
        explicit Cancelling(HANDLE toSignal) : event(toSignal) {}
        void OnBlock(std::uint64_t, std::uint64_t) override { SetEvent(event); }
        HANDLE event;
    };
    progress = std::make_shared<Cancelling>(cancel.event);
    g_script.pieces = {{3, "abc", 0, 0}, {3, "def", 0, 0}};
    g_script.contentLength = L"6";
    EXPECT_EQ(GetFile(&cancel), 1223U);
    EXPECT_EQ(TargetContent(), "abc");
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());
    CloseHandle(cancel.event);
}

} // namespace
