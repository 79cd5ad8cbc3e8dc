// Uploads and downloads, over a scripted transport: the steps of each, what becomes of a failing step, and of each answer.

#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include "QuendraHttp/NativeHttp.h"

namespace
{

using Texts = std::vector<std::string>;

const std::string kConflict = R"({"errorId":"1077",)" + kReply.substr(1);
const std::string kInvalidSession = R"({"errorId":"6"})";

TEST(Transfers, UploadsGiveTheServersItemAndDownloadsTheCallers)
{
    for (const Transfer& upload : {Upload(0), Upload(1), Chunk(0, 100, 1), kComplete})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        Caller caller;
        EXPECT_EQ(upload(client.Api(), caller), 0U);
        EXPECT_TRUE(caller.given && caller.given->GetName() == L"new.txt" && caller.given->GetRevision() == "8");
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
        for (const Transfer& download : {Download(), DeltaDownload(), Range(1, 2)})
        {
            ScriptedClient client;
            client.Negotiate(server.version, server.mode);
            client.script.replies = {{200, std::nullopt, 0, {}}, {200, kReply, 0, {}}};
            Caller caller;
            EXPECT_EQ(download(client.Api(), caller), 0U);
            EXPECT_EQ(client.script.requests.size(), server.asksAgain ? 2U : 1U);
            EXPECT_EQ(caller.given == caller.item, !server.asksAgain);
            EXPECT_TRUE(!server.asksAgain || (caller.given && caller.given->GetName() == L"new.txt"));
        }
    }
}

TEST(Transfers, HandTheCallersThingsToTheTransport)
{
    for (const auto& [name, transfer] : FileTransfers(0x5'0000'0007))
    {
        SCOPED_TRACE(name);
        ScriptedClient client;
        client.Negotiate("1.2"); // legacy mode from 1.2 on: downloads do not ask for the item again
        client.script.replies = {{200, kReply, 0, {}}};
        const Event event;
        Caller caller;
        caller.cancel = event.Cancel();
        caller.progress = std::make_shared<ProgressRecord>();
        caller.signature = L"\\\\?\\C:\\sig";
        EXPECT_EQ(transfer(client.Api(), caller), 0U);
        std::size_t watched = 0;
        for (const std::string& step : client.script.requests.at(0))
            if (step.starts_with("measure ") || step.starts_with("write ") || step.find(" into local at ") != std::string::npos)
            {
                EXPECT_TRUE(step.ends_with(" +cancel +progress")) << step;
                EXPECT_EQ(step.find("?\\"), std::string::npos) << "a signature's path loses its prefix: " << step;
                ++watched;
            }
        EXPECT_EQ(watched, name == "delta" ? 3U : IsUpload(name) ? 2U : 1U);
    }
}

TEST(Transfers, OmitWhatIsNotThere)
{
    for (const auto& [name, transfer] : FileTransfers())
    {
        SCOPED_TRACE(name);
        ScriptedClient client;
        client.Negotiate("1.2");
        client.script.replies = {{200, kReply, 0, {}}};
        Caller caller;
        caller.item = MakeItem(100, "");
        const TraceCapture trace;
        EXPECT_EQ(transfer(client.Api(), caller), 0U);
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
        const char* message; ///< null: the step is not judged.
        int call = 0;
    };
    const char* const file = "SendMultipartFile failed, error code: 77";
    const char* const headers = "AddMultipartHeaders failed, error code: 77";
    const char* const field = "AddMultipartFormData failed, error code: 77";
    const char* const start = "StartRequest failed, error code: 77";
    const char* const post = "SendPostData failed, error code: 77";
    const char* const end = "EndMultipart failed, error code: 77";
    const char* const receive = "ReceiveResponse failed, error code: 77";
    const char* const header = "AddHeader failed, error code: 77";
    const char* const chunkPost = "httpRequest->SendPostData, error code: 77";
    const Case cases[] = {
        {Upload(0), "measure", file},
        {Upload(0), "multipart json", headers},
        {Upload(0), "wide part creation", field},
        {Upload(0), "part size", field},
        {Upload(0), "start", start},
        {Upload(0), "post data", post, 1},
        {Upload(0), "write", file},
        {Upload(0), "end multipart", end},
        {Upload(0), "post data", post, 2},
        {Upload(0), "receive", receive},
        {Upload(1), "measure", file},
        {Upload(1), "multipart json", nullptr},
        {Upload(1), "part revision", field},
        {Upload(1), "start", start},
        {Upload(1), "post data", nullptr, 1},
        {Upload(1), "write", file},
        {Upload(1), "end multipart", nullptr},
        {Upload(1), "post data", post, 2},
        {Upload(1), "receive", receive},
        {Chunk(0, 9), "header qd_offset", header},
        {Chunk(0, 9), "measure", file},
        {Chunk(0, 9), "multipart json", headers},
        {Chunk(0, 9), "start", start},
        {Chunk(0, 9), "write", file},
        {Chunk(0, 9), "end multipart", end},
        {Chunk(0, 9), "post data", chunkPost},
        {Chunk(0, 9), "receive", receive},
        {kComplete, "header qd_finish", header},
        {kComplete, "header qd_new_path", header},
        {kComplete, "multipart json", headers},
        {kComplete, "start", start},
        {kComplete, "end multipart", end},
        {kComplete, "post data", chunkPost},
        {kComplete, "receive", receive},
        {kCancel, "send", "GetResponse failed, error code: 77"},
        {kMetadata, "send", "GetResponse failed, error code: 0x4d"},
        {kMetadata, "GET", "WinHttpRequest failed to initialise, error code: 77"},
        {Download(), "send for bytes", "SendRequestGetResponse failed, error code: 77"},
        {DeltaDownload(), "POST", "httpRequest->Initialise, error code: 0x4d"},
        {DeltaDownload(), "measure", "httpRequest->SendMultipartFile, error code: 0x0"},
        {DeltaDownload(), "multipart bytes", nullptr},
        {DeltaDownload(), "start", "httpRequest->StartRequest, error code: 77"},
        {DeltaDownload(), "write", "httpRequest->SendMultipartFile, error code: 77"},
        {DeltaDownload(), "end multipart", nullptr},
        {DeltaDownload(), "post data", "httpRequest->SendPostData, error code: 77"},
        {DeltaDownload(), "receive into", "httpRequest->GetResponse, error code: 77"},
        {Range(0, 1), "GET", "WinHttpRequest failed to initialise, error code: 0x4d"},
        {Range(0, 1), "send for bytes", "GetResponse failed, error code: 0x4d"},
    };
    for (const Case& transfer : cases)
    {
        SCOPED_TRACE(std::string(transfer.step) + ": " + (transfer.message == nullptr ? "not judged" : transfer.message));
        ScriptedClient client;
        client.Negotiate("1.2");
        client.script.replies = {{200, kReply, 0, {}}};
        client.script.failingStep = transfer.step;
        client.script.failingStepCall = transfer.call;
        client.script.failingStepResult = 77;
        Caller caller;
        const TraceCapture trace;
        EXPECT_EQ(transfer.run(client.Api(), caller), transfer.message == nullptr ? 0U : 77U);
        EXPECT_EQ(trace.Messages(EVT_ERROR), transfer.message == nullptr ? Texts{} : Texts{transfer.message});
        EXPECT_EQ(caller.given == nullptr, transfer.message != nullptr);
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
        bool takesItem = false;
    };
    const Case cases[] = {
        {"upload, no body", Upload(0), {200, std::nullopt, 0, {}}, 12152},
        {"upload, unreadable", Upload(1), {200, "{}", 0, {}}, 13},
        {"upload, refused", Upload(0), {403, R"({"errorId":"9"})", 0, {}}, 20009},
        {"upload, refused without a body", Upload(0), {503, std::nullopt, 0, {}}, 20503},
        {"upload, conflict", Upload(0), {409, kConflict, 0, {}}, 21077, true},
        {"delta, conflict", Upload(1), {409, kConflict, 0, {}}, 21077, true},
        {"delta, conflict without an item", Upload(1), {409, R"({"errorId":"1077"})", 0, {}}, 21077},
        {"upload, session invalid", Upload(0), {401, kInvalidSession, 0, {}}, 20006},
        {"chunk, unreadable", Chunk(0, 9), {200, "[]", 0, {}}, 13},
        {"chunk, refused without a body", Chunk(0, 9), {503, std::nullopt, 0, {}}, 12152},
        {"chunk, conflict", Chunk(0, 9), {409, kConflict, 0, {}}, 21077, true},
        {"chunk, session invalid", Chunk(0, 9), {401, kInvalidSession, 0, {}}, 20006},
        {"complete, unreadable", kComplete, {200, "{}", 0, {}}, 13},
        {"complete, refused", kComplete, {404, kInvalidSession, 0, {}}, 20006},
        {"cancel, refused", kCancel, {404, R"({"errorId":"5"})", 0, {}}, 20005},
        {"download, refused by the transport", Download(), {404, R"({"errorId":"5"})", 20404, {}}, 20005},
        {"download, refused without an id", Download(), {404, "gone", 20404, {}}, 20000},
        {"download, beyond the refusals", Download(), {0, "x", 27776, {}}, 27776},
        {"download, another success", Download(), {204, std::nullopt, 0, {}}, 0},
        {"download, denied", Download(), {401, std::nullopt, 0, {}}, 0},
        {"delta download, refused", DeltaDownload(), {404, std::nullopt, 0, {}}, 404},
        {"range, refused", Range(0, 1), {416, std::nullopt, 0, {}}, 416},
        {"range, refused by the transport", Range(0, 1), {416, std::nullopt, 20416, {}}, 20416},
    };
    for (const Case& answer : cases)
    {
        SCOPED_TRACE(answer.what);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {answer.reply};
        Caller caller;
        const TraceCapture trace;
        EXPECT_EQ(answer.run(client.Api(), caller), answer.expected);
        EXPECT_EQ(caller.given != nullptr, answer.takesItem);
        EXPECT_TRUE(!answer.takesItem || (caller.given && caller.given->GetName() == L"new.txt"));
        EXPECT_EQ(trace.Has(EVT_INFO, "Extracted attributes from upload reply"), answer.takesItem);
        EXPECT_EQ(trace.Has(EVT_ERROR, "GetHTTPStatus shows failure, code: " + std::to_string(answer.reply.status)),
                  answer.reply.status != 200 && answer.reply.result == 0);
        EXPECT_EQ(trace.Has(EVT_ERROR, "Failed to extract attributes from response"), answer.expected == 13);
    }
}

TEST(Transfers, AskForARepetitionWhenAnotherLoginChangedTheToken)
{
    std::map<std::string, Transfer> transfers = FileTransfers();
    transfers.insert({{"complete", kComplete}, {"cancel", kCancel}, {"metadata", kMetadata}});
    for (const auto& [name, transfer] : transfers)
    {
        SCOPED_TRACE(name);
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{401, kInvalidSession, 0, [&] { client->SetSessionToken(L"new"); }}};
        Caller caller;
        EXPECT_EQ(transfer(client.Api(), caller), 1237U);
        EXPECT_EQ(caller.given, nullptr);
    }
}

TEST(Transfers, AreCancelledBeforeTheyAreSentAndUploadsAlsoAfterTheAnswer)
{
    for (const auto& [name, transfer] : FileTransfers())
    {
        SCOPED_TRACE(name);
        const bool isUpload = IsUpload(name);
        ScriptedClient client;
        client.Negotiate("1.2");
        const Event event;
        Caller caller;
        caller.cancel = event.Cancel();
        client.script.replies = {{200, kReply, 0, [&] { event.Signal(); }}};
        EXPECT_EQ(transfer(client.Api(), caller), isUpload ? 1223U : 0U);
        EXPECT_EQ(caller.given == nullptr, isUpload);

        client.script = {};
        const TraceCapture trace;
        EXPECT_EQ(transfer(client.Api(), caller), 1223U);
        EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{isUpload          ? "Upload cancelled"
                                                   : name == "range" ? "DownloadData cancelled"
                                                                     : "Download cancelled"});
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
        const char* message;
        bool putsTimeoutsBack = false;
    };
    for (const Case& transfer : {Case{Chunk(0, 9), 5, 0, nullptr},
                                 Case{Chunk(0, 9), 0x80070005, 12, "WinHttpConnection failed to initialise, error code: -2147024891"},
                                 Case{Upload(0), 5, 12, "WinHttpConnection failed to initialise, error code: 5"},
                                 Case{kMetadata, 5, 12, "WinHttpConnection failed to initialise, error code: 0x00000005"},
                                 Case{Range(0, 1), 5, 12, "WinHttpConnection failed to initialise, error code: 5", true}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.connectionFailure = {1, transfer.result, 12};
        client.script.replies = {{200, kReply, 0, {}}};
        Caller caller;
        const TraceCapture trace;
        EXPECT_EQ(transfer.run(client.Api(), caller), transfer.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), transfer.message == nullptr ? Texts{} : Texts{transfer.message});
        EXPECT_EQ(client.script.timeouts, transfer.putsTimeoutsBack ? (std::vector<std::vector<int>>{{60000, 60000, 300000, 300000}})
                                                                    : std::vector<std::vector<int>>{});
    }
}

TEST(Transfers, DeltasHaveTimeoutsOfTheirOwn)
{
    ScriptedClient client;
    client.Negotiate();
    Caller caller;
    for (const auto& transfer : {Upload(1), Upload(0), DeltaDownload()})
        transfer(client.Api(), caller);
    EXPECT_EQ(client.script.connections,
              (Texts{"server:8080 send=300000 receive=600000", "server:8080 send=0 receive=0", "server:8080 send=0 receive=0"}));
}

TEST(ChunkedUpload, TellsItsCallerTheCorrectedLength)
{
    struct Case
    {
        std::int64_t offset, length, expected;
        const char* message;
    };
    for (const Case& chunk : {Case{60, 50, 40, "Past end of file: 60 + 50 > 100"}, Case{60, 40, 40, nullptr}, Case{60, 30, 30, nullptr},
                              Case{60, 0x7FFFFFFFFFFFFFFF, 40, "Past end of file: 60 + 9223372036854775807 > 100"},
                              Case{100, 0, 0, nullptr}, Case{101, 1, 0, "Past end of file: 101 + 1 > 100"}})
    {
        ScriptedClient client;
        client.Negotiate();
        client.script.replies = {{200, kReply, 0, {}}};
        Item item = MakeItem();
        std::int64_t length = chunk.length;
        const TraceCapture trace;
        EXPECT_EQ(client->ResumableUpload(L"local", L"/d/a.txt", item, kUpload, &chunk.offset, &length, 0, {}, nullptr), 0U);
        EXPECT_EQ(length, chunk.expected);
        EXPECT_EQ(trace.Messages(EVT_ERROR), chunk.message == nullptr ? Texts{} : Texts{chunk.message});
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
        const TraceCapture trace;
        EXPECT_EQ(client->GetResumableUploadMetadata(L"/d/a.txt", kUpload, &offset, &locked), metadata.expected);
        EXPECT_EQ(offset, metadata.offset);
        EXPECT_EQ(locked, metadata.locked);
        EXPECT_EQ(trace.Has(EVT_INFO, "Got offset 5000000000"), offset != 77);
        EXPECT_EQ(trace.Has(EVT_INFO, "Got locked " + std::to_string(locked)), locked != 7);
    }
}

} // namespace
