// Uploads and downloads, over scripted platform calls: what becomes of each answer, and of what happens meanwhile.

#include "CaseFile.h"
#include "Operations.h"
#include "ScriptedClient.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

namespace
{

// A client whose server answers the next request, and its caller with files.
struct Scene
{
    explicit Scene(const WinHttpScript::Reply& reply = {200, kReply, 0, {}}, const char* version = "1.2",
                   const char* mode = R"({"device_token_auth":false})")
    {
        client.Negotiate(version, mode); // from 1.2 on downloads do not ask for the item
        g_script.replies = {reply};
        caller.local = folder.Write("local", std::string(100, 'x'));
        caller.signature = folder.Write("signature", "x");
        trace.Clear();
    }

    ResultCode Perform(const Operation& transfer) { return transfer(client.Api(), caller); }

    const TemporaryFolder folder;
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
        for (const Operation& download : {Download(), Download(true), Range(1, 2)})
        {
            Scene scene({}, version, mode);
            g_script.replies.push_back({200, kReply, 0, {}});
            EXPECT_EQ(scene.Perform(download), 0U);
            EXPECT_EQ(g_script.requests.size(), asks ? 2U : 1U);
            ASSERT_NE(scene.caller.given, nullptr);
            EXPECT_TRUE(asks ? scene.caller.given->GetName() == L"new.txt" : scene.caller.given == scene.caller.item);
        }
    }
}

TEST(Transfers, HeedWhatHappensWhileTheyAreOnTheirWay)
{
    for (const auto& [name, transfer] : AllTransfers())
    {
        SCOPED_TRACE(name);
        Scene relogged({401, R"({"errorId":"6"})", 0, [&] { relogged.client->SetSessionToken(L"new"); }});
        if (IsDownload(name)) // the library's own transport takes this for a failure of the transfer
            g_script.foreign = {"file", 1, Result::Success, 0};
        EXPECT_EQ(relogged.Perform(transfer), Result::Retry);
        EXPECT_EQ(relogged.caller.given, nullptr);

        // Whoever takes an event checks it after the reply.
        const Event event;
        Scene cancelled({200, kReply, 0, [&] { event.Signal(); }});
        cancelled.caller.cancel = event;
        const bool takesEvent = IsUpload(name) || IsDownload(name);
        EXPECT_EQ(cancelled.Perform(transfer), takesEvent ? Result::Cancelled : 0U);
        EXPECT_TRUE(!takesEvent || cancelled.caller.given == nullptr);
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

// The errors that were traced, each behind "; ".
std::string Errors(const TraceCapture& trace)
{
    std::string errors;
    for (const std::string& message : trace.Messages(EVT_ERROR))
        errors += "; " + message;
    return errors;
}

// What a reply is judged to be. Where a result follows, another transport returns that for it.
std::string ShowJudged(const Json::Value& given)
{
    Scene scene({given[1].asUInt(), given[2].asString(), 0, {}});
    if (!given[3].isNull())
        g_script.foreign = {"file", 1, given[3].asUInt(), 0};
    const ResultCode code = scene.Perform(AllTransfers().at(given[0].asString()));
    EXPECT_EQ(scene.caller.given, nullptr);
    return std::to_string(code) + Errors(scene.trace);
}

// What an operation ends in whose connection ends in a result and the last error 12.
std::string ShowConnection(const Json::Value& given)
{
    Scene scene;
    g_script.foreign = {"connect", 1, given[1].asUInt(), 12};
    const ResultCode code = scene.Perform(AllTransfers().at(given[0].asString()));
    const bool arePutBack = g_script.timeouts.back() == std::vector<int>({60000, 60000, 300000, 300000});
    return std::to_string(code) + (arePutBack ? ", timeouts put back" : "") + Errors(scene.trace);
}

// The length of a chunk of a file of 100 bytes, as its caller learns it.
std::string ShowChunk(const Json::Value& given)
{
    Scene scene;
    const std::int64_t offset = given[0].asInt64();
    std::int64_t chunk = given[1].asInt64();
    EXPECT_EQ(scene.client->ResumableUpload(scene.caller.local, L"/d/a.txt", scene.caller.item, kUpload, &offset, &chunk, 0, {}, nullptr),
              0U);
    return std::to_string(chunk) + Errors(scene.trace);
}

// What the server has of an upload; 77 and 7 are left as they were.
std::string ShowMetadata(const Json::Value& given)
{
    Scene scene({200, given[0].asString(), 0, {}});
    std::int64_t offset = 77;
    std::uint32_t locked = 7;
    const ResultCode code = scene.client->GetResumableUploadMetadata(L"/d/a.txt", kUpload, &offset, &locked);
    EXPECT_EQ(scene.trace.Has(EVT_INFO, "Got offset " + std::to_string(offset)), offset != 77);
    EXPECT_EQ(scene.trace.Has(EVT_INFO, "Got locked " + std::to_string(locked)), locked != 7);
    return std::to_string(code) + ", offset " + std::to_string(offset) + ", locked " + std::to_string(locked);
}

TEST(Transfers, EndAsJudgedJsonSays)
{
    ExpectCases(ReadCaseFile("Judged.json"),
                {{"judged", ShowJudged}, {"connections", ShowConnection}, {"chunks", ShowChunk}, {"metadata", ShowMetadata}});
}

} // namespace
