// The transport step by step: what it asks of the platform, and what becomes of each step that fails.

#include "ScriptedWinHttp.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"
#include "WinHttpImpl.h"
#include "WinHttpImplRequest.h"

#include <cstdlib>
#include <cstring>

namespace
{

using Piece = WinHttpScript::Piece;
using Texts = std::vector<std::string>;

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
    TransportSteps() { Restart(); }

    // Objects of their own, with nothing recorded.
    void Restart()
    {
        g_script = {};
        session = std::make_shared<WinHttpSession>();
        connection = std::make_shared<WinHttpConnection>();
        request = std::make_shared<WinHttpRequest>(session);
        trace.Clear();
    }

    ResultCode InitialiseConnection(std::uint64_t send = 0, std::uint64_t receive = 0)
    {
        return connection->Initialise(L"server", 8080, session, send, receive);
    }

    ResultCode GetFile(const CancelEvent* cancelEvent = nullptr, std::uint32_t offsetLow = 0, std::uint32_t offsetHigh = 0)
    {
        return request->SendRequestGetResponse((folder / "target").wstring(), cancelEvent, progress, true, offsetLow, offsetHigh);
    }

    const TemporaryFolder folder;
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
        std::function<ResultCode()> run;
        const char* fails;
        int call;
        DWORD error;
        ResultCode expected;
        Texts messages;
    };
    const auto newSession = [this] { return session->Initialise(); };
    const auto newConnection = [this] { return InitialiseConnection(); };
    const auto newRequest = [this] { return request->Initialise(L"/path", L"GET", connection, nullptr, 0); };
    const auto getInMemory = [this] { return request->GetResponse(reply); };
    const auto getFile = [this] { return GetFile(); };
    const auto header = [this] { return request->AddHeader(L"a", L"b"); };
    const auto field = [this] { return request->AppendFormData("a", L"b", true); };
    const auto start = [this] { return request->StartRequest(5); };
    const auto post = [this] { return request->SendPostData(); };
    const auto option = [this] { return session->SetOption(3, nullptr, 0); };
    const auto query = [this] {
        DWORD length = 0;
        return session->QueryOption(3, nullptr, length);
    };
    const char* const add = "WinHttpAddRequestHeaders";
    const Texts cookie = {"WinHttpAddRequestHeaders failed, error code: 8"};
    const Texts status = {"WinHttpQueryHeaders failed, error code: 12150"};
    const Case cases[] = {
        {newSession, "WinHttpOpen", 1, 12004, 0x80072EE4, {"WinHttpOpen failed, error code: 12004"}},
        {newSession, "WinHttpSetTimeouts", 1, 87, 0x80070057, {"WinHttpSetTimeouts failed, error code: 87"}},
        {newSession, "WinHttpOpen", 1, 0x12345, 0x80072345, {"WinHttpOpen failed, error code: 74565"}},
        {newSession, "WinHttpOpen", 1, 0x80070005, 0x80070005, {"WinHttpOpen failed, error code: -2147024891"}},
        {newConnection, "WinHttpConnect", 1, 12005, 0x80072EE5, {"WinHttpConnect failed, error code: 12005"}},
        {newConnection, "WinHttpSetTimeouts", 1, 6, 0, {}}, // warned of only
        {newRequest, "WinHttpOpenRequest", 1, 12018, 0x80072EF2, {"WinHttpOpenRequest failed, error code: 12018"}},
        {header, add, 1, 12153, 12153, {"Failed to add header [a: b], error: 12153"}},
        {field, add, 1, 8, 8, {"Failed to AddRequestHeaders - 8"}},
        {start, add, 1, 8, 8, cookie},
        {start, "WinHttpSendRequest", 1, 12029, 12029, {"WinHttpSendRequest failed, error code: 12029"}},
        {post, "WinHttpWriteData", 1, 12030, 12030, {}},
        {getInMemory, add, 1, 8, 8, {}},
        {getInMemory, add, 2, 8, 8, cookie},
        {getInMemory, "WinHttpSendRequest", 1, 12007, 12007, {"WinHttpSendRequest failed, error code: 12007"}},
        {getInMemory, "WinHttpReceiveResponse", 1, 12002, 12002, {"WinHttpReceiveResponse failed, error code: 12002"}},
        {getInMemory, "WinHttpQueryHeaders", 1, 12150, 12150, status},
        {getInMemory, "WinHttpQueryHeaders", 2, 12150, 12150, status},
        {getFile, add, 1, 8, 8, cookie},
        {getFile, add, 2, 8, 8, cookie},
        {getFile,
         "WinHttpSendRequest",
         1,
         12029,
         12029,
         {"WinHttpSendRequest failed, error code: 12029", "SendRequest failed, error code: 12029"}},
        {getFile, "WinHttpReceiveResponse", 1, 12030, 12030, {"WinHttpReceiveResponse failed, error code: 12030"}},
        {getFile, "WinHttpQueryHeaders", 1, 12150, 12150, status},
        {getFile, "WinHttpQueryHeaders", 2, 12150, 12150, status},
        {option, "WinHttpSetOption", 1, 12009, 0x80072EE9, {"WinHttpSetOption failed, error code: 12009"}},
        {query, "WinHttpQueryOption", 1, 12009, 0x80072EE9, {"WinHttpQueryOption failed, error code: 12009"}},
    };
    for (const Case& step : cases)
    {
        SCOPED_TRACE(std::to_string(&step - cases) + ": " + step.fails);
        Restart();
        session->SetSessionToken(L"abc");
        g_script.Fail(step.fails, step.error, step.call);
        EXPECT_EQ(step.run(), step.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), step.messages);
        EXPECT_FALSE(std::filesystem::exists(folder / "target")) << "a refused download touches no file";
    }
}

TEST_F(TransportSteps, TheSessionHasTimeoutsOfItsOwnUntilAConnectionPutsTheSettings)
{
    EXPECT_EQ(session->Initialise(), 0U);
    EXPECT_TRUE(trace.Has(EVT_INFO, "Successfully initialised http session"));
    EXPECT_EQ(InitialiseConnection(), 0U);
    EXPECT_EQ(InitialiseConnection(0, 600000), 0U);
    EXPECT_EQ(InitialiseConnection((std::uint64_t{1} << 32) + 7, 0), 0U) << "the low half of an override counts";
    EXPECT_EQ(g_script.timeouts,
              (std::vector<std::vector<int>>{
                  {60000, 60000, 300000, 300000}, {0, 60000, 60000, 60000}, {0, 60000, 60000, 600000}, {0, 60000, 7, 60000}}));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Calling WinHttpSetTimeouts. CONN:60000, RES:0, SEND:60000, RECV:60000"));

    g_script.Fail("WinHttpSetTimeouts", 6, 5);
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

    const WinHttpScript::Header expected[] = {
        {L"qd_start: true", 0x60000000},
        {L"Content-Type: application/x-www-form-urlencoded; charset=UTF-8", 0xA0000000},
        {L"Content-Type: application/x-www-form-urlencoded; charset=UTF-8", 0xA0000000},
        {L"Accept: application/json", 0x60000000},
        {L"Cookie: session_token=abc", 0x40000000},
    };
    EXPECT_TRUE(std::equal(g_script.headers.begin(), g_script.headers.end(), std::begin(expected), std::end(expected)));
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
        {"the largest piece", {{0x500000, std::string(0x500000, 'x'), 0, 0}}, 0, std::string(0x500000, 'x')},
        {"too much at once", {{3, "abc", 0, 0}, {0x500001, "", 0, 0}}, 122, "abc"},
    };
    for (const Case& body : cases)
    {
        SCOPED_TRACE(body.what);
        g_script = {};
        g_script.pieces = body.pieces;
        g_script.status = L"404";
        Reply read;
        EXPECT_EQ(request->ReceiveResponse(read), body.expected);
        EXPECT_EQ(request->GetHTTPStatus(), 404U) << "told, and not judged";
        EXPECT_TRUE(read.Text() == body.text);
        EXPECT_EQ(read.data == nullptr, body.text.empty());
        EXPECT_TRUE(read.data == nullptr || read.data[read.length] == '\0');
    }
}

TEST_F(TransportSteps, DownloadsGoIntoTheFileAndAreCounted)
{
    const auto record = std::make_shared<ProgressRecord>();
    progress = record;
    struct Case
    {
        std::deque<Piece> pieces;
        const wchar_t* length;
        std::uint32_t offsetLow;
        std::uint32_t offsetHigh;
        const char* content;
        const char* told;
    };
    for (const Case& download : {Case{{{3, "abc", 0, 0}, {2, "de", 0, 0}}, L"5", 0, 0, "abcde", "status:4 3@3 2@5 "},
                                 Case{{{2, "XY", 0, 0}}, L"2", 1, 0, "aXYde", "status:4 2@2 "}, // into the file that is there
                                 Case{{{2, "12", 0, 0}}, L"", 0, 1, "12", "status:4 2@2 "}})    // a multiple of 4 GiB truncates
    {
        Restart();
        record->calls.clear();
        g_script.pieces = download.pieces;
        g_script.contentLength = download.length;
        EXPECT_EQ(GetFile(nullptr, download.offsetLow, download.offsetHigh), 0U);
        EXPECT_EQ(folder.Read("target"), download.content);
        EXPECT_EQ(record->calls, download.told);
        EXPECT_EQ(g_script.headers.at(0).modifiers, 0x40000000U);
        for (const char* const text : {"No bytes to read [0]", "Finished reading data", "Returning [0]"})
            EXPECT_TRUE(trace.Has(EVT_INFO, text)) << text;
    }
}

TEST_F(TransportSteps, ADownloadThatFailsSaysSoAndKeepsWhatItWrote)
{
    struct Case
    {
        std::wstring status;
        std::wstring contentLength;
        std::deque<Piece> pieces;
        ResultCode expected;
        std::string content;
        std::string message;
    };
    const Case cases[] = {
        {L"206", L"", {{3, "abc", 0, 0}}, 20206, "before", ""},
        {L"404", L"", {}, 20404, "before", ""},
        {L"200", L"", {{3, "abc", 0, 0}, {0, "", 12002, 0}}, 12002, "abc", "WinHttpQueryDataAvailable failed, error code: 12002"},
        {L"200", L"", {{3, "abc", 0, 0}, {3, "", 0, 12030}}, 12030, "abc", "WinHttpReadData failed, error code: 12030"},
        {L"200", L"5000000000", {{3, "abc", 0, 0}}, 12030, "abc", "The body ended after 3 of 5000000000 bytes, error code: 12030"},
        {L"200", L"3", {}, 12030, "", "The body ended after 0 of 3 bytes, error code: 12030"},
    };
    for (const Case& download : cases)
    {
        SCOPED_TRACE(std::to_string(download.expected) + download.message);
        static_cast<void>(folder.Write("target", "before"));
        g_script = {};
        g_script.status = download.status;
        g_script.contentLength = download.contentLength;
        g_script.pieces = download.pieces;
        trace.Clear();
        // What an earlier call left behind is no reason for an end.
        SetLastError(1234);
        EXPECT_EQ(GetFile(), download.expected);
        EXPECT_EQ(folder.Read("target"), download.content);
        EXPECT_EQ(trace.Messages(EVT_ERROR), download.message.empty() ? Texts{} : Texts{download.message});
    }
}

TEST_F(TransportSteps, AFileThatCannotBeOpenedOrResumedIsReported)
{
    EXPECT_EQ(GetFile(nullptr, 5, 0), 2U) << "there is no file to resume";
    EXPECT_TRUE(trace.Has(EVT_ERROR, "CreateFile failed, error code: 2"));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Returning [2]"));
    EXPECT_FALSE(std::filesystem::exists(folder / "target"));
    const std::wstring missing = (folder / "no" / "folder").wstring();
    EXPECT_EQ(request->SendRequestGetResponse(missing, nullptr, nullptr, true, 0, 0), 3U);
}

TEST_F(TransportSteps, ACancelEventEndsADownloadAfterItsBlock)
{
    const Event event;
    progress = std::make_shared<ProgressRecord>([&] { event.Signal(); });
    g_script.pieces = {{3, "abc", 0, 0}, {3, "def", 0, 0}};
    g_script.contentLength = L"6";
    EXPECT_EQ(GetFile(&event.Cancel()), 1223U);
    EXPECT_EQ(folder.Read("target"), "abc");
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());
    g_script.pieces = {{0, "", 12002, 0}};
    EXPECT_EQ(GetFile(&event.Cancel()), 1223U) << "whatever happened before";
}

} // namespace
