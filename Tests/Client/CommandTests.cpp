// Whole runs of the program over a library that is made up: what each command asks and prints, and how it ends.

#include "FakeApi.h"
#include "TextConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace
{

constexpr const char* kId = "0F8FAD5B-D9CB-469F-A165-70867728950E";
constexpr const char* kItemJson = R"({"item":{"attributes":32,"created":null,"directory":false,"folderReadOnly":false,)"
                                  R"("modified":"1601-01-01T00:00:01.000Z","name":"a.txt","readOnly":true,"revision":"7","size":10}})";

std::shared_ptr<IServerAttributes> SampleItem()
{
    auto item = std::make_shared<CServerAttributes>();
    item->SetName(L"a.txt");
    item->SetSize(10);
    item->SetLastWriteTime(CAttributeTime(10'000'000));
    item->SetAttributes(32);
    item->SetReadOnly(1);
    item->SetRevision("7");
    return item;
}

class Commands : public testing::Test
{
protected:
    Commands() { run.script.item = SampleItem(); }

    // The calls behind the instance's set-up and the handshake.
    static std::vector<std::string> OwnCalls(const Ran& ran)
    {
        const auto handshake = std::find(ran.calls.begin(), ran.calls.end(), "Init");
        return {handshake == ran.calls.end() ? ran.calls.begin() : handshake + 1, ran.calls.end()};
    }

    static std::string ReadFile(const std::filesystem::path& path)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::filesystem::path SessionFile() const { return run.folder.Path() / "quendra" / "session.json"; }

    ProgramRunner run;
};

TEST_F(Commands, AskTheLibraryAndPrintTheResult)
{
    const std::string item = kItemJson;
    const struct
    {
        std::vector<std::string> arguments;
        std::vector<std::string> calls;
        std::string json;
    } cases[] = {
        {{"version"}, {"Version"}, R"({"buildNumber":"9.1"})"},
        {{"stat", "/a"}, {"GetPathAttributes /a"}, item},
        {{"mkdir", "/n/"}, {"CreateFolder /n"}, item},
        {{"rm", "/a"}, {"DeletePath /a size=- revision="}, R"({"ok":true})"},
        {{"rm", "/a", "--revision", "5"}, {"DeletePath /a size=- revision=5"}, R"({"ok":true})"},
        {{"mv", "/a", "/b"}, {"RenamePath /a /b 0"}, item},
        {{"mv", "/a", "/b", "--overwrite"}, {"RenamePath /a /b 1"}, item},
        {{"upload-status", "/a", kId}, {"GetResumableUploadMetadata /a " + std::to_string(0x0F8FAD5B)}, R"({"locked":null,"offset":0})"},
        {{"upload-cancel", "/a", kId}, {"CancelUpload /a"}, R"({"ok":true})"},
        {{"upload-complete", "/a", "/b", kId}, {"CompleteUpload /a /b"}, item},
        {{"changes"}, {"GetChanges"}, R"({"actions":[{"type":3,"typeName":"move","value":"/a\u001b","value2":"/b"}]})"},
        {{"mappings"},
         {"GetRemoteFolderMap"},
         R"({"mappings":[{"allowSharing":true,"description":"Papers","localPath":"","mode":3,"permissions":"WRITE",)"
         R"("serverPath":"/Docs","status":2,"type":1}]})"},
        {{"share", "/a", "/b", "--to", "x", "y", "--name", "n", "--message", "m"}, {"GenerateLink n m /a /b to x y"}, R"({"ok":true})"},
        {{"audit", "-"}, {"PublishSyncStats from input\n"}, R"({"ok":true})"},
        {{"wipe-ack", "ann", "D1"}, {"AcknowledgeRemoteWipe ann D1"}, R"({"ok":true})"},
    };
    run.input = "from input\n";
    for (auto sample : cases)
    {
        sample.arguments.push_back("--json");
        const Ran ran = run(sample.arguments);
        EXPECT_EQ(ran.status, 0) << ran.errors;
        EXPECT_EQ(OwnCalls(ran), sample.calls);
        EXPECT_EQ(ran.output, sample.json + "\n");
        sample.arguments.pop_back();
        const Ran forPeople = run(sample.arguments);
        EXPECT_EQ(forPeople.status, 0);
        EXPECT_FALSE(forPeople.output.empty() || forPeople.output.find('\x1B') != std::string::npos) << forPeople.output;
    }
}

TEST_F(Commands, ListAFolder)
{
    run.script.children = {L"b\x1B[1m", L"\u65E5\u672C"};
    const Ran ran = run({"ls", "/"});
    EXPECT_EQ(ran.output,
              "Kind  Size  Modified  Revision  Name\n-rw      -  -         -         b\\x1B[1m\n-rw      -  -         -         "
              "\u65E5\u672C\n");
    EXPECT_NE(run({"ls", "/", "--json"}).output.find("{\"folder\":{\"attributes\":32"), std::string::npos);
}

TEST_F(Commands, TouchKeepsWhatIsNotNamed)
{
    const Ran ran = run({"touch", "/a", "--created", "2020-01-02T03:04:05Z"});
    EXPECT_EQ(OwnCalls(ran).back(), "SetPathAttributes /a 2020-01-02T03:04:05.000Z 1601-01-01T00:00:01.000Z 32");
}

TEST_F(Commands, SetUpTheInstanceAndShakeHandsFirst)
{
    run.environment["QUENDRA_TOKEN"] = "t";
    EXPECT_EQ(
        run({"--device", "box", "--server", "https://other", "version"}).calls,
        (std::vector<std::string>{"CreateInstance box", "SetServer https://other", "SetPort 443", "SetSessionToken t", "Init", "Version"}));
    EXPECT_EQ(run({"register", "ann"}).calls, (std::vector<std::string>{"CreateInstance machine", "SetServer http://server", "SetPort 80",
                                                                        "Init", "Register ann machine"}));
    EXPECT_EQ(run({"handshake", "--json"}).output, "{\"apiAtLeast13\":true,\"handshakeValue\":7,\"serverMode\":2}\n");
    run.environment.clear();
    EXPECT_EQ(run({"version"}).status, 2);
}

TEST_F(Commands, ReportAFailure)
{
    run.script.results = {{"GetPathListing", {20404, 20404, 0x80070057}}, {"Init", {0, 0, 0, 12029}}};
    Ran ran = run({"ls", "/x"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.errors, "quendra: GetPathListing failed: 20404 (the server refused: HTTP 404, not found)\n");
    EXPECT_EQ(ran.output, "");
    ran = run({"ls", "/x", "--json"});
    EXPECT_EQ(ran.output,
              "{\"error\":{\"code\":20404,\"meaning\":\"the server refused: HTTP 404, not found\",\"operation\":\"GetPathListing\"}}\n");
    EXPECT_EQ(run({"ls", "/x"}).errors, "quendra: GetPathListing failed: 0x80070057 (an argument cannot be used)\n");
    ran = run({"ls", "/x"});
    EXPECT_EQ(ran.calls.back(), "Init");
    EXPECT_EQ(ran.errors.find("quendra: Init failed: 12029 ("), 0U);
}

TEST_F(Commands, TakeThePasswordFromTheFirstPlaceThatHasIt)
{
    run.input = "from-input\r\nmore";
    EXPECT_EQ(run({"login", "ann", "--device-token", "dt"}).calls.back(), "Login ann from-input dt machine 3 0");
    run.isTerminal = true;
    EXPECT_EQ(run({"login", "ann"}).calls.back(), "Login ann from-prompt  machine 3 0");
    run.environment["QUENDRA_PASSWORD"] = "from-environment";
    const Ran ran = run({"login", "ann", "--trace", run.folder.File("trace.txt")});
    EXPECT_EQ(ran.calls.back(), "Login ann from-environment  machine 3 0");
    for (const auto& text : {ran.output, ran.errors, ReadFile(SessionFile()), ReadFile(run.folder.Path() / "trace.txt")})
        EXPECT_EQ(text.find("from-environment"), std::string::npos);
    run.environment.erase("QUENDRA_PASSWORD");
    run.isTerminal = false;
    run.input.clear();
    EXPECT_EQ(run({"login", "ann"}).status, 2);
}

TEST_F(Commands, KeepTheSessionForItsServerOnly)
{
    const auto sends = [](const Ran& ran, const std::string& call) { return std::count(ran.calls.begin(), ran.calls.end(), call) == 1; };
    run.environment = {{"QUENDRA_PASSWORD", "p"}};
    run.script.policy = L"{\"session_token\":\"fresh-token\",\"policy_block\":{\"a\":1}}";
    const Ran login = run({"--server", "https://host:8443", "login", "ann", "--json"});
    EXPECT_EQ(login.output, "{\"handshakeValue\":7,\"ok\":true,\"policy\":\"{\\\"policy_block\\\":{\\\"a\\\":1}}\"}\n");

    Ran ran = run({"version"});
    EXPECT_TRUE(sends(ran, "SetServer https://host") && sends(ran, "SetPort 8443") && sends(ran, "SetSessionToken fresh-token"));
    EXPECT_TRUE(sends(run({"version", "--server", "https://HOST", "--port", "8443"}), "SetSessionToken fresh-token"));
    EXPECT_TRUE(sends(run({"version", "--token", "own"}), "SetSessionToken own"));
    // Neither another host, nor another port, nor a connection that is not secure gets the token.
    for (const char* server : {"https://other:8443", "https://host", "http://host:8443"})
        EXPECT_FALSE(sends(run({"version", "--server", server}), "SetSessionToken fresh-token")) << server;
    EXPECT_FALSE(sends(run({"version", "--port", "1"}), "SetSessionToken fresh-token"));

    EXPECT_EQ(run({"logout", "--json"}).output, "{\"ok\":true}\n");
    EXPECT_FALSE(std::filesystem::exists(SessionFile()));
    EXPECT_EQ(run({"logout"}).status, 0);
    EXPECT_EQ(run({"version"}).status, 2);
}

TEST_F(Commands, SurviveASessionFileThatIsNone)
{
    run.environment = {{"QUENDRA_SESSION", run.folder.File("mine.json")}};
    for (const char* content :
         {"", "{", "[]", "{\"server\":1}", R"({"server":"a/b","port":80,"token":"t"})", R"({"server":"a","port":1e99,"token":"t"})"})
    {
        run.folder.Make("mine.json", content);
        const Ran ran = run({"version"});
        EXPECT_EQ(ran.status, 1) << content;
        EXPECT_NE(ran.errors.find("mine.json does not hold a session"), std::string::npos) << ran.errors;
    }
    EXPECT_EQ(run({"logout"}).status, 0);
}

TEST_F(Commands, DownloadWholeFilesRangesAndDeltas)
{
    const std::string local = run.folder.File("l.txt");
    const struct
    {
        std::vector<std::string> options;
        std::string call;
    } cases[] = {
        {{}, "DownloadFile /a l.txt size=10 revision= signature "},
        {{"--revision", "5"}, "DownloadFile /a l.txt size=10 revision=5 signature "},
        {{"--signature", run.folder.File("s")}, "DownloadFile /a l.txt size=10 revision= signature s"},
        {{"--skip", "2", "--count", "3"}, "DownloadData /a l.txt size=10 revision= 2 3"},
        {{"--skip", "4"}, "DownloadData /a l.txt size=10 revision= 4 6"},
        {{"--count", "3"}, "DownloadData /a l.txt size=10 revision= 0 3"},
        {{"--skip", "11"}, "DownloadData /a l.txt size=10 revision= 11 0"},
    };
    for (const auto& item : cases)
    {
        run.script.item = SampleItem();
        std::vector<std::string> arguments = {"get", "/a", local};
        arguments.insert(arguments.end(), item.options.begin(), item.options.end());
        const Ran ran = run(arguments);
        EXPECT_EQ(ran.status, 0);
        EXPECT_EQ(OwnCalls(ran), (std::vector<std::string>{"GetPathAttributes /a", item.call}));
    }
    run.script.item = SampleItem();
    EXPECT_EQ(run({"get", "/a", local, "--json"}).output, std::string(kItemJson) + "\n");
    EXPECT_EQ(OwnCalls(run({"get", "/x/leaf", run.folder.Path().string()})).back().find("DownloadFile /x/leaf leaf "), 0U);
    // An item that cannot be asked for may still be downloaded.
    run.script.counts.clear();
    run.script.results = {{"GetPathAttributes", {20403}}};
    EXPECT_EQ(OwnCalls(run({"get", "/a", local})).back(), "DownloadFile /a l.txt size=- revision= signature ");
}

TEST_F(Commands, UploadWhole)
{
    const std::string local = run.folder.Make("l.txt", "0123456789");
    EXPECT_EQ(OwnCalls(run({"put", local, "/b.txt"})).back(), "UploadFile l.txt /b.txt size=10 revision= delta 0");
    EXPECT_EQ(OwnCalls(run({"put", local, "/d/", "--delta", "--revision", "6"})).back(),
              "UploadFile l.txt /d/l.txt size=10 revision=6 delta 1");

    run.script.counts.clear();
    run.script.results = {{"UploadFile", {21077}}};
    const Ran conflict = run({"put", local, "/b.txt", "--revision", "6"});
    EXPECT_EQ(conflict.status, 1);
    EXPECT_NE(conflict.errors.find("--revision 7 replaces it"), std::string::npos) << conflict.errors;

    EXPECT_EQ(run({"put", run.folder.File("none"), "/b"}).errors, "quendra: UploadFile failed: 2 (a local file was not found)\n");
    EXPECT_NE(run({"put", run.folder.Path().string(), "/b"}).errors.find("is a folder"), std::string::npos);
}

TEST_F(Commands, UploadInChunksAndResume)
{
    const std::string local = run.folder.Make("l.txt", "0123456789");
    const auto chunk = [](const std::string& rest) { return "ResumableUpload l.txt /b size=10 revision= " + rest; };
    Ran ran = run({"put", local, "/b", "--chunk-size", "4"});
    EXPECT_EQ(OwnCalls(ran), (std::vector{chunk("0 4 begin 1"), chunk("4 4 begin 0"), chunk("8 2 begin 0")}));
    EXPECT_EQ(ran.output.find("Upload id: "), 0U);

    run.script.receivedBytes = 7;
    ran = run({"put", local, "/b", "--chunk-size", "8", "--resume", kId, "--json"});
    EXPECT_EQ(OwnCalls(ran).back(), chunk("7 3 begin 0"));
    EXPECT_EQ(ran.output.substr(ran.output.size() - 52), std::string(",\"uploadId\":\"") + kId + "\"}\n");
    run.script.receivedBytes = 11;
    EXPECT_EQ(run({"put", local, "/b", "--chunk-size", "8", "--resume", kId}).status, 1);

    const std::string empty = run.folder.Make("l.txt", "");
    EXPECT_EQ(OwnCalls(run({"put", empty, "/b", "--chunk-size", "4"})),
              (std::vector<std::string>{"ResumableUpload l.txt /b size=0 revision= 0 0 begin 1"}));
}

TEST_F(Commands, SayHowToGoOnAfterCtrlC)
{
    const std::string local = run.folder.Make("l.txt", "0123456789");
    const struct
    {
        std::vector<std::string> arguments;
        const char* operation;
        std::string advice;
    } cases[] = {
        {{"get", "/a", local}, "DownloadFile", "--skip 4\n"},
        {{"get", "/a", local, "--skip", "2", "--count", "6"}, "DownloadData", "--skip 6 --count 2\n"},
        {{"put", local, "/b"}, "UploadFile", "--chunk-size"},
        {{"put", local, "/b", "--chunk-size", "4", "--resume", kId},
         "ResumableUpload",
         std::string("--chunk-size 4 --resume ") + kId + "\n"},
    };
    for (const auto& item : cases)
    {
        run.script.item = SampleItem();
        run.script.counts.clear();
        run.script.interruptedIn = item.operation;
        const Ran ran = run(item.arguments);
        EXPECT_EQ(ran.status, 130) << item.operation;
        EXPECT_NE(ran.errors.find(item.advice), std::string::npos) << ran.errors;
        EXPECT_NE(ran.errors.find(std::string(item.operation) + " failed: 1223 (cancelled)"), std::string::npos) << ran.errors;
    }
}

TEST_F(Commands, FollowTheFeedOverARestart)
{
    run.script.results = {{"GetChanges", {12029, 0}}};
    run.script.interruptedIn = "GetChanges";
    run.script.interruptedAt = 3;
    const Ran ran = run({"changes", "--follow"});
    EXPECT_EQ(ran.status, 130);
    EXPECT_EQ(ran.output, "move    /a\\x1B -> /b\n");
    EXPECT_NE(ran.errors.find("GetChanges failed: 12029"), std::string::npos);
    EXPECT_NE(ran.errors.find("next try in 1 s"), std::string::npos);

    // What waiting does not mend ends it.
    run.script.counts.clear();
    run.script.results = {{"GetChanges", {20006}}};
    EXPECT_EQ(run({"changes", "--follow"}).status, 1);
}

TEST_F(Commands, DrawProgressOnATerminalOnly)
{
    const std::string local = run.folder.Make("l.txt", "0123456789");
    EXPECT_EQ(run({"put", local, "/b"}).errors, "");
    run.isTerminal = true;
    const std::string drawn = run({"put", local, "/b"}).errors;
    EXPECT_TRUE(drawn.starts_with("\rl.txt") && drawn.ends_with('\n') && drawn.find(" 40% [") != std::string::npos) << drawn;
    EXPECT_EQ(run({"put", local, "/b", "--quiet"}).errors, "");
    EXPECT_EQ(run({"put", local, "/b", "--json"}).errors, "");
}

} // namespace
