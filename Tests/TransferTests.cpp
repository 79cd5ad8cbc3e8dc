// Uploads and downloads, over a scripted transport: what becomes of each answer, and of what happens meanwhile.

#include "Operations.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

namespace
{

using Texts = std::vector<std::string>;

const std::string kInvalidSession = R"({"errorId":"6"})";

// A client whose server answers the next request, and its caller.
struct Scene
{
    explicit Scene(const ScriptedReply& reply = {200, kReply, 0, {}}, const char* version = "1.2",
                   const char* mode = R"({"device_token_auth":false})")
    {
        client.Negotiate(version, mode); // from 1.2 on downloads do not ask for the item
        client.script.replies = {reply};
        trace.Clear();
    }

    ResultCode Perform(const Operation& transfer) { return transfer(client.Api(), caller); }

    ScriptedClient client;
    Caller caller;
    TraceCapture trace;
};

TEST(Transfers, DownloadsAskForTheItemWhereTheServerIsOfTheOldKind)
{
    for (const auto& [version, mode, asks] :
         {std::tuple{"1.1", R"({"device_token_auth":false})", true}, std::tuple{"1.2", R"({"device_token_auth":false})", false},
          std::tuple{"1.1", R"({"device_token_auth":true})", false}})
    {
        for (const Operation& download : {Download(), DeltaDownload(), Range(1, 2)})
        {
            Scene scene({200, std::nullopt, 0, {}}, version, mode);
            scene.client.script.replies.push_back({200, kReply, 0, {}});
            EXPECT_EQ(scene.Perform(download), 0U);
            EXPECT_EQ(scene.client.script.requests.size(), asks ? 2U : 1U);
            ASSERT_NE(scene.caller.given, nullptr);
            EXPECT_TRUE(asks ? scene.caller.given->GetName() == L"new.txt" : scene.caller.given == scene.caller.item);
        }
    }
}

TEST(Transfers, JudgeWhatATransportOfTheCallersOwnAnswers)
{
    using Row = std::tuple<Operation, ScriptedReply, ResultCode, std::string>;
    for (const auto& [transfer, reply, expected, message] :
         std::vector<Row>{{Upload(0), {401, kInvalidSession, 0, {}}, 20006, "GetHTTPStatus shows failure, code: 401"},
                          {Chunk(0, 9), {401, kInvalidSession, 0, {}}, 20006, "GetHTTPStatus shows failure, code: 401"},
                          {Download(), {404, "gone", 20000, {}}, 20000, "SendRequestGetResponse failed, error code: 20000"},
                          {Download(), {404, R"({"errorId":"5"})", 27775, {}}, 20005, "SendRequestGetResponse failed, error code: 27775"},
                          {Download(), {0, R"({"errorId":"5"})", 27776, {}}, 27776, "SendRequestGetResponse failed, error code: 27776"},
                          {Download(), {204, std::nullopt, 0, {}}, 0, "GetHTTPStatus shows failure, code: 204"},
                          {Download(), {401, std::nullopt, 0, {}}, 0, "GetHTTPStatus shows failure, code: 401"},
                          {DeltaDownload(), {404, std::nullopt, 0, {}}, 404, "GetHTTPStatus shows failure, code: 404"},
                          {Range(0, 1), {416, std::nullopt, 0, {}}, 416, "GetHTTPStatus shows failure, code: 416"}})
    {
        SCOPED_TRACE(std::to_string(expected) + ": " + message);
        Scene scene(reply);
        EXPECT_EQ(scene.Perform(transfer), expected);
        EXPECT_EQ(scene.caller.given, nullptr);
        EXPECT_TRUE(scene.trace.Has(EVT_ERROR, message)) << scene.trace;
    }
}

TEST(Transfers, HeedWhatHappensWhileTheyAreOnTheirWay)
{
    for (const auto& [name, transfer] : AllTransfers())
    {
        SCOPED_TRACE(name);
        Scene relogged({401, R"({"errorId":"6"})", 0, [&] { relogged.client->SetSessionToken(L"new"); }});
        EXPECT_EQ(relogged.Perform(transfer), Result::Retry);
        EXPECT_EQ(relogged.caller.given, nullptr);

        // Only uploads check the event after the reply.
        const Event event;
        Scene cancelled({200, kReply, 0, [&] { event.Signal(); }});
        cancelled.caller.cancel = event;
        EXPECT_EQ(cancelled.Perform(transfer), IsUpload(name) ? Result::Cancelled : 0U);
        EXPECT_TRUE(!IsUpload(name) || cancelled.caller.given == nullptr);
    }
}

TEST(Transfers, HoldWhatTheirCallerDropsMeanwhile)
{
    std::map<std::string, Operation> operations = FileTransfers();
    operations["set"] = [](Api& api, Caller& caller) { return api.SetPathAttributes(L"/a", caller.item, caller.given); };
    operations["remove"] = [](Api& api, Caller& caller) { return api.DeletePath(L"/a", caller.item); };
    for (const auto& [name, operation] : operations)
    {
        SCOPED_TRACE(name);
        const bool takesProgress = IsUpload(name) || IsDownload(name);
        std::weak_ptr<IServerAttributes> item;
        std::weak_ptr<IProgressCallback> progress;
        Scene scene({200, kReply, 0, [&] {
                         scene.caller.item = nullptr;
                         scene.caller.progress = nullptr;
                         EXPECT_FALSE(item.expired());
                         EXPECT_EQ(progress.expired(), !takesProgress);
                     }});
        scene.caller.progress = std::make_shared<ProgressRecord>();
        item = scene.caller.item;
        progress = scene.caller.progress;
        EXPECT_EQ(scene.Perform(operation), 0U);
        EXPECT_EQ(scene.caller.given == nullptr, name == "remove");
        scene.caller = {};
        EXPECT_TRUE(item.expired() && progress.expired()) << "released with the call";
    }
}

TEST(Transfers, DifferInWhenAConnectionCountsAsFailed)
{
    using Row = std::tuple<Operation, ResultCode, ResultCode, Texts, std::vector<std::vector<int>>>;
    for (const auto& [transfer, result, expected, errors, timeouts] : std::vector<Row>{
             {Chunk(0, 9), 5, 0, {}, {}},
             {Chunk(0, 9), 0x80070005, 12, {"WinHttpConnection failed to initialise, error code: -2147024891"}, {}},
             {Upload(0), 5, 12, {"WinHttpConnection failed to initialise, error code: 5"}, {}},
             {kMetadata, 5, 12, {"WinHttpConnection failed to initialise, error code: 0x00000005"}, {}},
             {Range(0, 1), 5, 12, {"WinHttpConnection failed to initialise, error code: 5"}, {{60000, 60000, 300000, 300000}}}})
    {
        Scene scene;
        scene.client.script.failure = {"connect", 1, result, 12};
        EXPECT_EQ(scene.Perform(transfer), expected);
        EXPECT_EQ(scene.trace.Messages(EVT_ERROR), errors);
        EXPECT_EQ(scene.client.script.timeouts, timeouts);
    }
}

TEST(ChunkedUpload, TellsItsCallerTheCorrectedLength)
{
    using Row = std::tuple<std::int64_t, std::int64_t, std::int64_t, Texts>;
    for (const auto& [offset, length, expected, errors] :
         std::vector<Row>{{60, 50, 40, {"Past end of file: 60 + 50 > 100"}},
                          {60, 40, 40, {}},
                          {60, 30, 30, {}},
                          {60, 0x7FFFFFFFFFFFFFFF, 40, {"Past end of file: 60 + 9223372036854775807 > 100"}},
                          {100, 0, 0, {}},
                          {101, 1, 0, {"Past end of file: 101 + 1 > 100"}}})
    {
        Scene scene;
        std::int64_t chunk = length;
        EXPECT_EQ(scene.client->ResumableUpload(L"local", L"/d/a.txt", scene.caller.item, kUpload, &offset, &chunk, 0, {}, nullptr), 0U);
        EXPECT_EQ(chunk, expected);
        EXPECT_EQ(scene.trace.Messages(EVT_ERROR), errors);
    }
}

TEST(ChunkedUpload, ReadsWhatTheServerHas)
{
    using Row = std::tuple<const char*, ResultCode, std::int64_t, std::uint32_t>;
    for (const auto& [reply, expected, expectedOffset, expectedLocked] :
         std::vector<Row>{{R"({"bytes_received":5000000000,"is_locked":"true"})", 0, 5000000000, 1},
                          {R"({"bytes_received":"5000000000","is_locked":"yes"})", 0, 5000000000, 0},
                          {R"({"bytes_received":true,"is_locked":true})", 0, 77, 7},
                          {R"({"bytes_received":1.5})", 0, 77, 7},
                          {"[]", 13, 77, 7}})
    {
        Scene scene({200, reply, 0, {}});
        std::int64_t offset = 77;
        std::uint32_t locked = 7;
        EXPECT_EQ(scene.client->GetResumableUploadMetadata(L"/d/a.txt", kUpload, &offset, &locked), expected);
        EXPECT_EQ(offset, expectedOffset);
        EXPECT_EQ(locked, expectedLocked);
        EXPECT_EQ(scene.trace.Has(EVT_INFO, "Got offset 5000000000"), offset != 77);
        EXPECT_EQ(scene.trace.Has(EVT_INFO, "Got locked " + std::to_string(locked)), locked != 7);
    }
}

} // namespace
