// The transport over scripted platform calls: what it asks for, and what it makes of the answers.

#include "CaseFile.h"
#include "TextConversion.h"
#include "TransportFixture.h"

#include <cstdlib>
#include <map>
#include <tuple>

namespace
{

using Piece = WinHttpScript::Piece;
using Texts = std::vector<std::string>;

class TransportSteps : public TransportFixture
{
protected:
    ResultCode InitialiseConnection(std::uint64_t send = 0, std::uint64_t receive = 0)
    {
        return connection->Initialise(L"server", 8080, session, send, receive);
    }

    ResultCode GetFile(const CancelEvent* cancelEvent = nullptr, std::uint32_t offsetLow = 0, std::uint32_t offsetHigh = 0)
    {
        return request->SendRequestGetResponse((folder / "target").wstring(), cancelEvent, progress, true, offsetLow, offsetHigh);
    }

    ResponseBuffer reply;
};

TEST_F(TransportSteps, AFailureIsFoldedAndKeepsItsReasonWhileHandlesAreClosed)
{
    for (const auto& [error, folded] :
         {std::pair{12004U, 0x80072EE4U}, std::pair{0x12345U, 0x80072345U}, std::pair{0x80070005U, 0x80070005U}})
    {
        Restart();
        EXPECT_EQ(session->Initialise(), Result::Success);
        g_script.Fail("WinHttpOpen", error, 2);
        EXPECT_EQ(session->Initialise(), folded);
        EXPECT_EQ(g_script.closed.size(), 1U);
        EXPECT_EQ(GetLastError(), error);
        DWORD length = 0;
        g_script.Fail("WinHttpSetOption", error, 3);
        g_script.Fail("WinHttpQueryOption", error);
        EXPECT_EQ(session->SetOption(3, nullptr, 0), folded);
        EXPECT_EQ(session->QueryOption(3, nullptr, length), folded);
    }
}

TEST_F(TransportSteps, TheSessionHasTimeoutsOfItsOwnUntilAConnectionPutsTheSettings)
{
    EXPECT_EQ(session->Initialise(), Result::Success);
    EXPECT_TRUE(trace.Has(EVT_INFO, "Successfully initialised http session"));
    EXPECT_EQ(InitialiseConnection(), Result::Success);
    EXPECT_EQ(InitialiseConnection(0, 600000), Result::Success);
    EXPECT_EQ(InitialiseConnection((std::uint64_t{1} << 32) + 7, 0), Result::Success) << "the low half of an override counts";
    EXPECT_EQ(g_script.timeouts,
              (std::vector<std::vector<int>>{
                  {60000, 60000, 300000, 300000}, {0, 60000, 60000, 60000}, {0, 60000, 60000, 600000}, {0, 60000, 7, 60000}}));
    EXPECT_TRUE(trace.Has(EVT_INFO, "Calling WinHttpSetTimeouts. CONN:60000, RES:0, SEND:60000, RECV:60000"));

    g_script.Fail("WinHttpSetTimeouts", 6, 5);
    EXPECT_EQ(InitialiseConnection(), Result::Success);
    EXPECT_TRUE(trace.Has(EVT_WARNING, "WinHttpSetTimeouts failed with error code: [6]. Failed to override timeout defaults."));
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "Attach handle non-null"), 3U);
}

TEST_F(TransportSteps, TheWayToTheServerIsTracedWhereSomebodyListens)
{
    const Texts steps = {"Resolving the name server", "Resolved the name: 10.0.0.1", "Connecting to 10.0.0.1", "Connected to 10.0.0.1",
                         "Sending the request"};
    const Texts reasons = {
        "The secure connection failed, error code: 12045 (the server's certificate comes from an authority that this machine does not "
        "trust)",
        "The secure connection failed, error code: 12037 (the server's certificate is not valid today: check the clock)"};
    const auto ask = [&] {
        Restart();
        g_script.notices = {{WINHTTP_CALLBACK_STATUS_RESOLVING_NAME, L"server"},
                            {WINHTTP_CALLBACK_STATUS_NAME_RESOLVED, L"10.0.0.1"},
                            {WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER, L"10.0.0.1"},
                            {WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER, L"10.0.0.1"},
                            {WINHTTP_CALLBACK_STATUS_SENDING_REQUEST, L""},
                            {WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, L"",
                             WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID | WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA}};
        EXPECT_EQ(request->Initialise(L"/path", L"GET", connection, nullptr, 0), 0U);
        g_script.Fail("WinHttpSendRequest", 12175);
        EXPECT_EQ(request->GetResponse(reply), 12175U);
    };
    ask();
    for (const auto& step : steps)
        EXPECT_EQ(trace.CountOf(EVT_INFO, step), 1U) << step << trace;
    for (const auto& reason : reasons)
        EXPECT_EQ(trace.CountOf(EVT_ERROR, reason), 1U) << reason << trace;
    {
        const TraceCapture errors(EVT_ERROR);
        ask();
        EXPECT_EQ(errors.Messages(), (Texts{reasons[0], reasons[1], "WinHttpSendRequest failed, error code: 12175"}));
    }
    const TraceCapture critical(EVT_CRITICAL);
    ask();
    EXPECT_EQ(g_script.callback, nullptr);
}

TEST_F(TransportSteps, AttachKeepsOneHandleAndClosesTheOther)
{
    int first = 0;
    int second = 0;
    using Row = std::tuple<int*, std::size_t, std::size_t>;
    for (const auto& [handle, closed, told] : {Row{&first, 0, 0}, Row{&first, 0, 1}, Row{&second, 1, 2}, Row{nullptr, 2, 3}})
    {
        EXPECT_EQ(session->Attach(handle), handle != nullptr);
        EXPECT_EQ(g_script.closed.size(), closed) << "the same handle again stays open";
        EXPECT_EQ(trace.CountOf(EVT_ERROR, "Attach handle non-null"), told);
    }
    session->Close();
    session->Close();
    EXPECT_EQ(g_script.closed, (std::vector<HINTERNET>{&first, &second}));
}

TEST_F(TransportSteps, HeadersAreAddedAndBodiesCollectedInTheStatedWays)
{
    session->SetSessionToken(L"abc");
    EXPECT_EQ(request->AddHeader(L"qd_start", L"true"), Result::Success);
    EXPECT_EQ(request->AppendFormData("a", L"x y~", false), Result::Success);
    EXPECT_EQ(request->AppendFormData("b", L"1", true), Result::Success);
    g_script.Fail("WinHttpSendRequest", 12029);
    EXPECT_EQ(request->GetResponse(reply), 12029U);
    EXPECT_EQ(request->GetPostDataLength(), 12U) << "a failed send keeps the body";
    EXPECT_EQ(request->GetResponse(reply), Result::Success);
    EXPECT_EQ(request->GetPostDataLength(), 0U) << "a successful one forgets it";
    EXPECT_EQ(g_script.body, "a=x+y%7E&b=1");
    EXPECT_EQ(GetFile(), Result::Success);
    EXPECT_EQ(request->AddMultipartHeaders(true), Result::Success);
    EXPECT_EQ(request->AddMultipartHeaders(false), Result::Success);
    EXPECT_EQ(request->AddMultipartFormData("a", "1"), Result::Success);
    g_script.Fail("WinHttpWriteData", 12030);
    EXPECT_EQ(request->SendPostData(), 12030U);
    EXPECT_EQ(request->GetPostDataLength(), 0U) << "data that was posted is not kept";

    const std::map<DWORD, std::string> ways = {{0x60000000, " joins, "}, {0xA0000000, " replaces, "}, {0x40000000, " only joins, "}};
    std::string added;
    for (const WinHttpScript::Header& header : g_script.headers)
        added += ToNarrow(header.text.substr(0, header.text.find(L':'))) + ways.at(header.modifiers);
    EXPECT_EQ(added, "qd_start joins, Content-Type replaces, Content-Type replaces, Accept joins, Cookie only joins, Accept joins, "
                     "Cookie only joins, Accept only joins, Cookie only joins, Accept joins, Content-Type replaces, Accept joins, "
                     "Content-Type replaces, ");
    EXPECT_TRUE(g_script.headers.back().text.ends_with(L"}\"\n")) << "a line feed that the platform takes off";

    g_script.sendHeaders.clear();
    EXPECT_EQ(request->StartRequest(0), Result::Success);
    EXPECT_EQ(request->StartRequest(0x1'0000'0001), Result::Success);
    EXPECT_TRUE(g_script.sendHeaders == (std::vector<std::wstring>{L"Content-Length: 0\r\n", L"Content-Length: 4294967297\r\n"}));
}

TEST_F(TransportSteps, NothingThatBreaksAHeaderIsHandedOver)
{
    for (const std::wstring& bad : {std::wstring(L"a\rb"), std::wstring(L"a\nb"), std::wstring(L"a\0b", 3)})
    {
        EXPECT_EQ(request->AddHeader(L"qd_new_path", bad), Result::InvalidParameter);
        EXPECT_EQ(request->AddHeader(bad, L"x"), Result::InvalidParameter);
        EXPECT_EQ(request->Initialise(bad, L"GET", connection, nullptr, 0), 0x80070057U);
        session->SetSessionToken(bad);
        EXPECT_EQ(request->StartRequest(0), Result::InvalidParameter);
        EXPECT_EQ(request->GetResponse(reply), Result::InvalidParameter);
        EXPECT_EQ(GetFile(), Result::InvalidParameter);
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
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room, L'x'), false), Result::Success);
    EXPECT_EQ(request->GetPostDataLength(), 1024U);
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room + 1, L'x'), false), Result::InsufficientBuffer);
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room + 1, L'y'), true), Result::Success)
        << "the last field has no separator";
    EXPECT_EQ(request->AppendFormData("password", std::wstring(room / 3 + 1, L'/'), false), Result::InsufficientBuffer)
        << "its encoded text counts";
    EXPECT_EQ(request->GetPostDataLength(), 2048U);
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Form field [password] is longer than 1024 characters"));
    EXPECT_FALSE(trace.Mentions("xxx"));
}

// The pieces of a body: each the announced size, the bytes, and the errors of the query and of the read.
std::deque<Piece> PiecesIn(const Json::Value& pieces)
{
    std::deque<Piece> read;
    for (const Json::Value& piece : pieces)
        read.push_back({piece[0].asUInt(), piece[1].asString(), piece[2].asUInt(), piece[3].asUInt()});
    return read;
}

TEST_F(TransportSteps, RepliesAreReadAsReceivedJsonSays)
{
    const auto intoMemory = [this](const Json::Value& given) {
        Restart();
        g_script.pieces = PiecesIn(given[0]);
        g_script.status = L"404";
        const ResultCode code = request->ReceiveResponse(reply);
        EXPECT_EQ(request->GetHTTPStatus(), 404U) << "told, and not judged";
        const std::unique_ptr<char, decltype(&std::free)> owner(reply.data, &std::free);
        EXPECT_TRUE(reply.data == nullptr ? reply.length == 0 : reply.length != 0 && reply.data[reply.length] == '\0');
        return std::to_string(code) + " " + std::string(reply.data != nullptr ? reply.data : "", reply.length);
    };
    const auto intoFile = [this](const Json::Value& given) {
        Restart();
        std::filesystem::remove(folder / "target");
        static_cast<void>(folder.Write("target", "before"));
        g_script.status = ToWide(given[0].asString());
        g_script.contentLength = ToWide(given[1].asString());
        g_script.pieces = PiecesIn(given[2]);
        const TraceCapture heard;
        SetLastError(1234); // what an earlier call left behind is no reason for an end
        const ResultCode code = GetFile(nullptr, given[3].asUInt(), given[4].asUInt());
        const bool isRead = code < Result::RefusalBase;
        EXPECT_EQ(heard.Has(EVT_INFO, "No bytes to read [0]"), isRead && !heard.Mentions("WinHttp"));
        EXPECT_EQ(heard.Has(EVT_INFO, "Finished reading data"), isRead);
        EXPECT_EQ(heard.Has(EVT_INFO, "Returning [" + std::to_string(code) + "]"), isRead);
        std::string shown = std::to_string(code) + " " + folder.Read("target") + ", " + progress->calls;
        for (const std::string& error : heard.Messages(EVT_ERROR))
            shown += "; " + error;
        return shown;
    };
    ExpectCases(ReadCaseFile("Received.json"), {{"memory", intoMemory}, {"files", intoFile}});
    const std::string largest(0x500000, 'x');
    g_script.pieces = {{0x500000, largest, 0, 0}};
    EXPECT_EQ(request->ReceiveResponse(reply), Result::Success);
    EXPECT_TRUE(std::string_view(reply.data, reply.length) == largest);
    std::free(reply.data);
}

TEST_F(TransportSteps, ACancelEventHidesHowADownloadEnds)
{
    const Event event;
    event.Signal();
    g_script.pieces = {{0, "", 12002, 0}};
    EXPECT_EQ(GetFile(&event), Result::Cancelled);
}

} // namespace
