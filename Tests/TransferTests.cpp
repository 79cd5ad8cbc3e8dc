// Uploads and downloads, over a scripted transport: the steps of each, what becomes of a failing step, and of each answer.

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

constexpr GUID kUpload{0x0F8FAD5B, 0xD9CB, 0x469F, {0xA1, 0x65, 0x70, 0x86, 0x77, 0x28, 0x95, 0x0E}};
const std::string kResume = "/sync/resume/upload/d/a.txt?resume_id=0F8FAD5B-D9CB-469F-A165-70867728950E flags=0";
const std::string kReply = R"({"name":"new.txt","revision":"8","creation_time":"2020-01-02T03:04:05.6Z",)"
                           R"("modification_time":"2020-01-02T03:04:05.6Z","size":1,"attributes":32})";
const std::string kConflict = R"({"errorId":"1077",)" + kReply.substr(1);

Item MakeItem(std::int64_t size = 100, const std::string& revision = "7")
{
    auto item = std::make_shared<CAttributes<CServerItemAttributesBase>>();
    item->SetCreationTime(CAttributeTime("2020-01-02T03:04:05.6Z"));
    item->SetLastWriteTime(CAttributeTime("2021-01-02T03:04:05.6Z"));
    item->SetAttributes(32);
    item->SetSize(size);
    item->SetRevision(revision);
    return item;
}

class Event
{
public:
    ~Event() { CloseHandle(m_cancel.event); }
    Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    [[nodiscard]] const CancelEvent& Cancel() const { return m_cancel; }
    void Signal() const { SetEvent(m_cancel.event); }

private:
    CancelEvent m_cancel{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

// One operation of a case; the item is what it takes and gives.
using Transfer = std::function<ResultCode(IQuendraHttpAPI&, Item&, const CancelEvent&)>;

Transfer Upload(std::uint32_t delta)
{
    return [delta](IQuendraHttpAPI& api, Item& item, const CancelEvent& cancel) {
        return api.UploadFile(L"local", L"/d/a.txt", item, &delta, cancel, nullptr);
    };
}
Transfer Chunk(std::int64_t offset, std::int64_t length, std::int32_t begin = 0)
{
    return [=](IQuendraHttpAPI& api, Item& item, const CancelEvent& cancel) {
        std::int64_t chunk = length;
        return api.ResumableUpload(L"local", L"/d/a.txt", item, kUpload, &offset, &chunk, begin, cancel, nullptr);
    };
}
Transfer Download(const wchar_t* signature)
{
    return [signature](IQuendraHttpAPI& api, Item& item, const CancelEvent& cancel) {
        return api.DownloadFile(L"/d/a.txt", L"local", item, item, signature, cancel, nullptr);
    };
}
Transfer Range(std::uint64_t skip, std::int64_t count)
{
    return [=](IQuendraHttpAPI& api, Item& item, const CancelEvent& cancel) {
        return api.DownloadData(L"/d/a.txt", L"local", item, item, &skip, &count, cancel, nullptr);
    };
}
const Transfer kComplete = [](IQuendraHttpAPI& api, Item& item, const CancelEvent&) {
    return api.CompleteUpload(L"/d/a.txt", L"/d/b c.txt", kUpload, item);
};
const Transfer kCancel = [](IQuendraHttpAPI& api, Item&, const CancelEvent&) { return api.CancelUpload(L"/d/a.txt", kUpload); };

Script::Steps ChunkSteps(const std::string& offset, const std::string& length, const std::vector<std::string>& markers)
{
    Script::Steps steps = {"POST " + kResume,
                           "header qd_file_size: 100",
                           "header qd_file_creation_time: 2020-01-02T03:04:05.600Z",
                           "header qd_file_modification_time: 2021-01-02T03:04:05.600Z",
                           "header qd_attributes: 32",
                           "header qd_revision: 7",
                           "header qd_offset: " + offset,
                           "header qd_block_size: " + length};
    steps.insert(steps.end(), markers.begin(), markers.end());
    const std::string file = " file local as a.txt range=" + offset + "+" + length;
    for (const std::string& step : {"measure" + file, std::string("multipart json"), std::string("start 244"), "write" + file,
                                    std::string("end multipart"), std::string("post data"), std::string("receive")})
        steps.push_back(step);
    return steps;
}

TEST(Transfers, TakeTheirStepsInOrder)
{
    struct Case
    {
        const char* what;
        Transfer run;
        Script::Steps steps;
    };
    const std::string times[] = {"wide part creation_time=2020-01-02T03:04:05.600Z",
                                 "wide part modification_time=2021-01-02T03:04:05.600Z"};
    const Case cases[] = {
        {"whole file",
         Upload(0),
         {"POST /sync/folders/d/a.txt flags=0", "measure file local as a.txt", "multipart json", "part operation=create", times[0],
          times[1], "part attributes=32", "part size=100", "part revision=7", "start 1244", "post data", "write file local as a.txt",
          "end multipart", "post data", "receive"}},
        {"delta",
         Upload(1),
         {"POST /sync/delta/d/a.txt flags=0", "measure file local as a.txt", "multipart json", times[1], times[0], "part attributes=32",
          "part size=100", "part revision=7", "start 1244", "post data", "write file local as a.txt", "end multipart", "post data",
          "receive"}},
        {"first chunk", Chunk(0, 40, 1), ChunkSteps("0", "40", {"header qd_start: true"})},
        {"chunk between", Chunk(40, 40), ChunkSteps("40", "40", {})},
        {"last chunk", Chunk(60, 40), ChunkSteps("60", "40", {"header qd_finish: true"})},
        {"chunk beyond the end", Chunk(60, 50), ChunkSteps("60", "40", {"header qd_finish: true"})},
        {"only chunk", Chunk(0, 100, 1), ChunkSteps("0", "100", {"header qd_start: true", "header qd_finish: true"})},
        {"complete",
         kComplete,
         {"POST " + kResume, "header qd_finish: true", "header qd_new_path: /d/b c.txt", "multipart json", "start 44", "end multipart",
          "post data", "receive"}},
        {"cancel", kCancel, {"DELETE " + kResume, "send"}},
        {"download", Download(L""), {"GET /sync/folders/d/a.txt?revision=7 flags=0", "send for bytes into local at 0:0"}},
        {"delta download",
         Download(L"\\\\?\\C:\\sig"),
         {"POST /sync/delta/d/a.txt?revision=7 flags=0", "measure file C:\\sig as a.txt", "multipart bytes", "start 1244",
          "write file C:\\sig as a.txt", "end multipart", "post data", "receive into local at 0:0"}},
        {"range",
         Range(0x5'0000'0007, 100),
         {"GET /sync/folders/d/a.txt?skip=21474836487&count=100&revision=7 flags=0", "send for bytes into local at 5:7"}},
    };
    for (const Case& transfer : cases)
    {
        SCOPED_TRACE(transfer.what);
        ScriptedClient client;
        client.Negotiate("1.2"); // legacy mode from 1.2 on: downloads do not ask for the item again
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem();
        const Event event;
        EXPECT_EQ(transfer.run(client.Api(), item, event.Cancel()), 0U);
        EXPECT_EQ(client.script.requests, std::vector<Script::Steps>{transfer.steps});
    }
}

TEST(Transfers, UploadsGiveTheServersItemAndDownloadsTheCallers)
{
    for (const Transfer& upload : {Upload(0), Upload(1), Chunk(0, 100, 1), kComplete})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem();
        EXPECT_EQ(upload(client.Api(), item, {}), 0U);
        EXPECT_TRUE(item->GetName() == L"new.txt");
    }
    struct Case
    {
        const char* version;
        const char* mode;
        bool asksAgain;
    };
    for (const Case& server : {Case{"1.1", R"({"device_token_auth":false})", true}, Case{"1.2", R"({"device_token_auth":false})", false},
                               Case{"1.1", R"({"device_token_auth":true})", false}})
    {
        for (const Transfer& download : {Download(L""), Download(L"sig"), Range(1, 2)})
        {
            ScriptedClient client;
            client.Negotiate(server.version, server.mode);
            client.script.replies = {{200, std::nullopt, 0, {}}, {200, kReply, 0, {}}};
            Item item = MakeItem();
            EXPECT_EQ(download(client.Api(), item, {}), 0U);
            EXPECT_EQ(item->GetName() == L"new.txt", server.asksAgain);
            EXPECT_EQ(client.script.requests.size(), server.asksAgain ? 2U : 1U);
        }
    }
}

TEST(Transfers, OmitWhatIsNotThere)
{
    for (const Transfer& transfer : {Upload(0), Upload(1), Chunk(0, 10), Download(L""), Download(L"sig"), Range(0, 1)})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem(100, "");
        TraceCapture trace;
        transfer(client.Api(), item, {});
        for (const std::string& step : client.script.requests.at(0))
            EXPECT_EQ(step.find("revision"), std::string::npos) << step;
        EXPECT_FALSE(trace.Mentions("Revision: "));
    }
}

TEST(Transfers, AFailingStepEndsWithItsMessageAndCode)
{
    struct Case
    {
        Transfer run;
        const char* step;
        ResultCode expected;
        const char* message;
    };
    const Case cases[] = {
        {Upload(0), "measure", 77, "SendMultipartFile failed, error code: 77"},
        {Upload(0), "multipart json", 77, "AddMultipartHeaders failed, error code: 77"},
        {Upload(0), "part size", 77, "AddMultipartFormData failed, error code: 77"},
        {Upload(0), "start", 77, "StartRequest failed, error code: 77"},
        {Upload(0), "post data", 77, "SendPostData failed, error code: 77"},
        {Upload(0), "write", 77, "SendMultipartFile failed, error code: 77"},
        {Upload(0), "end multipart", 77, "EndMultipart failed, error code: 77"},
        {Upload(0), "receive", 77, "ReceiveResponse failed, error code: 77"},
        {Upload(1), "measure", 77, "SendMultipartFile failed, error code: 77"},
        {Upload(1), "multipart json", 0, nullptr},
        {Upload(1), "start", 77, "StartRequest failed, error code: 77"},
        {Upload(1), "end multipart", 0, nullptr},
        {Upload(1), "post data", 77, "SendPostData failed, error code: 77"},
        {Upload(1), "receive", 77, "ReceiveResponse failed, error code: 77"},
        {Chunk(0, 9), "header qd_offset", 77, "AddHeader failed, error code: 77"},
        {Chunk(0, 9), "measure", 77, "SendMultipartFile failed, error code: 77"},
        {Chunk(0, 9), "multipart json", 77, "AddMultipartHeaders failed, error code: 77"},
        {Chunk(0, 9), "start", 77, "StartRequest failed, error code: 77"},
        {Chunk(0, 9), "write", 77, "SendMultipartFile failed, error code: 77"},
        {Chunk(0, 9), "end multipart", 77, "EndMultipart failed, error code: 77"},
        {Chunk(0, 9), "post data", 77, "httpRequest->SendPostData, error code: 77"},
        {Chunk(0, 9), "receive", 77, "ReceiveResponse failed, error code: 77"},
        {kComplete, "header qd_new_path", 77, "AddHeader failed, error code: 77"},
        {kComplete, "start", 77, "StartRequest failed, error code: 77"},
        {kComplete, "receive", 77, "ReceiveResponse failed, error code: 77"},
        {kCancel, "send", 77, "GetResponse failed, error code: 77"},
        {Download(L""), "send for bytes", 77, "SendRequestGetResponse failed, error code: 77"},
        {Download(L"sig"), "POST", 77, "httpRequest->Initialise, error code: 0x4d"},
        {Download(L"sig"), "measure", 77, "httpRequest->SendMultipartFile, error code: 0x0"},
        {Download(L"sig"), "multipart bytes", 0, nullptr},
        {Download(L"sig"), "start", 77, "httpRequest->StartRequest, error code: 77"},
        {Download(L"sig"), "write", 77, "httpRequest->SendMultipartFile, error code: 77"},
        {Download(L"sig"), "post data", 77, "httpRequest->SendPostData, error code: 77"},
        {Download(L"sig"), "receive into", 77, "httpRequest->GetResponse, error code: 77"},
        {Range(0, 1), "GET", 77, "WinHttpRequest failed to initialise, error code: 0x4d"},
        {Range(0, 1), "send for bytes", 77, "GetResponse failed, error code: 0x4d"},
    };
    for (const Case& transfer : cases)
    {
        SCOPED_TRACE(std::string(transfer.step) + ": " + (transfer.message == nullptr ? "not judged" : transfer.message));
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        client.script.failingStep = transfer.step;
        client.script.failingStepResult = 77;
        const Item before = MakeItem();
        Item item = before;
        TraceCapture trace;
        EXPECT_EQ(transfer.run(client.Api(), item, {}), transfer.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR),
                  transfer.message == nullptr ? std::vector<std::string>{} : std::vector<std::string>{transfer.message});
        EXPECT_TRUE(transfer.expected == 0 || item == before);
    }
}

TEST(Transfers, EndEachAnswerInItsCode)
{
    struct Case
    {
        const char* what;
        Transfer run;
        ScriptedReply reply;
        ResultCode expected;
        bool takesItem;
    };
    const std::string invalid = R"({"errorId":"6"})";
    const Case cases[] = {
        {"upload, no body", Upload(0), {200, std::nullopt, 0, {}}, 12152, false},
        {"upload, unreadable", Upload(1), {200, "{}", 0, {}}, 13, false},
        {"upload, refused", Upload(0), {403, R"({"errorId":"9"})", 0, {}}, 20009, false},
        {"upload, refused without a body", Upload(0), {503, std::nullopt, 0, {}}, 20503, false},
        {"upload, conflict", Upload(0), {409, kConflict, 0, {}}, 21077, true},
        {"delta, conflict without an item", Upload(1), {409, R"({"errorId":"1077"})", 0, {}}, 21077, false},
        {"upload, session invalid", Upload(0), {401, invalid, 0, {}}, 20006, false},
        {"chunk, unreadable", Chunk(0, 9), {200, "[]", 0, {}}, 13, false},
        {"chunk, refused without a body", Chunk(0, 9), {503, std::nullopt, 0, {}}, 12152, false},
        {"chunk, conflict", Chunk(0, 9), {409, kConflict, 0, {}}, 21077, true},
        {"chunk, session invalid", Chunk(0, 9), {401, invalid, 0, {}}, 20006, false},
        {"complete, unreadable", kComplete, {200, "{}", 0, {}}, 13, false},
        {"complete, refused", kComplete, {404, invalid, 0, {}}, 20006, false},
        {"cancel, refused", kCancel, {404, R"({"errorId":"5"})", 0, {}}, 20005, false},
        {"download, refused by the transport", Download(L""), {404, R"({"errorId":"5"})", 20404, {}}, 20005, false},
        {"download, refused without an id", Download(L""), {404, "gone", 20404, {}}, 20000, false},
        {"download, beyond the refusals", Download(L""), {0, "x", 27776, {}}, 27776, false},
        {"download, another success", Download(L""), {204, std::nullopt, 0, {}}, 0, false},
        {"download, denied", Download(L""), {401, std::nullopt, 0, {}}, 0, false},
        {"delta download, refused", Download(L"sig"), {404, std::nullopt, 0, {}}, 404, false},
        {"range, refused", Range(0, 1), {416, std::nullopt, 0, {}}, 416, false},
        {"range, refused by the transport", Range(0, 1), {416, std::nullopt, 20416, {}}, 20416, false},
    };
    for (const Case& answer : cases)
    {
        SCOPED_TRACE(answer.what);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {answer.reply};
        const Item before = MakeItem();
        Item item = before;
        EXPECT_EQ(answer.run(client.Api(), item, {}), answer.expected);
        EXPECT_EQ(item != before, answer.takesItem);
    }
}

TEST(Transfers, AskForARepetitionWhenAnotherLoginChangedTheToken)
{
    for (const Transfer& transfer : {Upload(0), Upload(1), Chunk(0, 9), kComplete, kCancel, Download(L""), Download(L"sig"), Range(0, 1)})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{401, R"({"errorId":"6"})", 0, [&] { client->SetSessionToken(L"new"); }}};
        Item item = MakeItem();
        EXPECT_EQ(transfer(client.Api(), item, {}), 1237U);
    }
}

TEST(Transfers, AreCancelledBeforeTheyAreSentAndUploadsAlsoAfterTheAnswer)
{
    struct Case
    {
        Transfer run;
        const char* message;
        bool afterAnswer;
    };
    for (const Case& transfer : {Case{Upload(0), "Upload cancelled", true}, Case{Upload(1), "Upload cancelled", true},
                                 Case{Chunk(0, 9), "Upload cancelled", true}, Case{Download(L""), "Download cancelled", false},
                                 Case{Download(L"sig"), "Download cancelled", false}, Case{Range(0, 1), "DownloadData cancelled", false}})
    {
        ScriptedClient client;
        client.Negotiate();
        const Event event;
        const Item before = MakeItem();
        Item item = before;
        client.script.replies = {{200, kReply, 0, [&] { event.Signal(); }}};
        EXPECT_EQ(transfer.run(client.Api(), item, event.Cancel()), transfer.afterAnswer ? 1223U : 0U);
        EXPECT_EQ(item, before);

        client.script = {};
        TraceCapture trace;
        EXPECT_EQ(transfer.run(client.Api(), item, event.Cancel()), 1223U);
        EXPECT_EQ(trace.Messages(EVT_ERROR), std::vector<std::string>{transfer.message});
        EXPECT_EQ(client.script.requests.at(0).size(), 1U) << "opened, nothing sent";
    }
}

TEST(Transfers, DifferInWhenAConnectionCountsAsFailed)
{
    struct Case
    {
        Transfer run;
        ResultCode result;
        ResultCode expected;
    };
    for (const Case& transfer :
         {Case{Chunk(0, 9), 5, 0}, Case{Chunk(0, 9), 0x80070005, 12}, Case{Upload(0), 5, 12}, Case{Range(0, 1), 5, 12}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.connectionFailure = {1, transfer.result, 12};
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem();
        EXPECT_EQ(transfer.run(client.Api(), item, {}), transfer.expected);
    }
    ScriptedClient client;
    client.Negotiate();
    client.script.connectionFailure = {1, 5, 12};
    Item item = MakeItem();
    Range(0, 1)(client.Api(), item, {});
    EXPECT_EQ(client.script.timeouts, (std::vector<std::vector<int>>{{60000, 60000, 300000, 300000}})) << "a range alone puts them back";
}

TEST(Transfers, DeltasHaveTimeoutsOfTheirOwn)
{
    ScriptedClient client;
    client.Negotiate();
    Item item = MakeItem();
    Upload(1)(client.Api(), item, {});
    Upload(0)(client.Api(), item, {});
    EXPECT_EQ(client.script.connections,
              (std::vector<std::string>{"server:8080 send=300000 receive=600000", "server:8080 send=0 receive=0"}));
}

TEST(ChunkedUpload, TellsItsCallerTheCorrectedLength)
{
    struct Case
    {
        std::int64_t size, offset, length, expected;
        const char* message;
    };
    constexpr std::int64_t huge = 0x7FFFFFFFFFFFFFFF;
    for (const Case& chunk : {Case{100, 60, 50, 40, "Past end of file: 60 + 50 > 100"}, Case{100, 60, 40, 40, nullptr},
                              Case{100, 60, 30, 30, nullptr}, Case{100, 60, huge, 40, "Past end of file: 60 + 9223372036854775807 > 100"}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem(chunk.size);
        std::int64_t length = chunk.length;
        TraceCapture trace;
        client->ResumableUpload(L"local", L"/d/a.txt", item, kUpload, &chunk.offset, &length, 0, {}, nullptr);
        EXPECT_EQ(length, chunk.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR),
                  chunk.message == nullptr ? std::vector<std::string>{} : std::vector<std::string>{chunk.message});
    }
}

TEST(ChunkedUpload, ReadsWhatTheServerHas)
{
    struct Case
    {
        ScriptedReply reply;
        ResultCode expected;
        std::int64_t offset;
        std::uint32_t locked;
    };
    for (const Case& metadata : {Case{{200, R"({"bytes_received":5000000000,"is_locked":"true"})", 0, {}}, 0, 5000000000, 1},
                                 Case{{200, R"({"bytes_received":"5000000000","is_locked":"yes"})", 0, {}}, 0, 5000000000, 0},
                                 Case{{200, R"({"bytes_received":true,"is_locked":true})", 0, {}}, 0, 77, 7},
                                 Case{{200, R"({"bytes_received":1.5})", 0, {}}, 0, 77, 7}, Case{{200, "[]", 0, {}}, 13, 77, 7},
                                 Case{{200, "{\"bytes_rec", 0, {}}, 13, 77, 7}, Case{{200, std::nullopt, 0, {}}, 8, 77, 7},
                                 Case{{404, std::nullopt, 0, {}}, 20404, 77, 7}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {metadata.reply};
        std::int64_t offset = 77;
        std::uint32_t locked = 7;
        EXPECT_EQ(client->GetResumableUploadMetadata(L"/d/a.txt", kUpload, &offset, &locked), metadata.expected);
        EXPECT_EQ(offset, metadata.offset);
        EXPECT_EQ(locked, metadata.locked);
        EXPECT_EQ(client.script.requests, std::vector<Script::Steps>({{"GET " + kResume, "send"}}));
    }
}

} // namespace
