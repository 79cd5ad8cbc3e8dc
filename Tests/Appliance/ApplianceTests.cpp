#include "Appliance.h"
#include "Delta.h"
#include "Exchange.h"
#include "HeaderMender.h"
#include "Multipart.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <json/reader.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using ApplianceParts::Options;
using ApplianceParts::ServerMode;

constexpr const char* kJson = "application/json";
constexpr const char* kBytes = "application/octet-stream";
constexpr const char* kForm = "application/x-www-form-urlencoded";
constexpr const char* kMultipart = "multipart/form-data; boundary=\"{B}\"";

struct Answer
{
    int status = 0; // 0: the connection failed
    std::string body;
    Json::Value json;

    [[nodiscard]] std::string ErrorId() const { return json.isObject() ? json["errorId"].asString() : "no JSON"; }
    [[nodiscard]] Json::Value Item() const { return json.isObject() ? json["document_info"] : Json::Value(); }
};

Answer ToAnswer(const httplib::Result& result)
{
    Answer answer;
    if (!result)
        return answer;
    answer.status = result->status;
    answer.body = result->body;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    reader->parse(answer.body.data(), answer.body.data() + answer.body.size(), &answer.json, nullptr);
    return answer;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return std::move(content).str();
}

void WriteFile(const fs::path& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary) << content;
}

// Bytes that do not repeat within a block of a delta.
std::string Noise(std::size_t size, std::uint32_t seed = 1)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes)
    {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<char>(seed >> 24U);
    }
    return bytes;
}

std::string MultipartBody(const std::vector<std::pair<std::string, std::string>>& fields, const std::string& file)
{
    std::string body;
    for (const auto& [name, value] : fields)
        body += "--{B}\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    return body + "--{B}\r\nContent-Disposition: form-data; name=\"file\"; filename=\"x\"\r\nContent-Type: " + kBytes + "\r\n\r\n" + file +
           "\r\n--{B}--\r\n";
}

// A client with a session of its own, over one kept connection.
class User
{
public:
    explicit User(int port, const std::string& device = "device") : m_client("127.0.0.1", port)
    {
        m_client.set_keep_alive(true);
        m_client.set_read_timeout(std::chrono::seconds(20));
        const auto login = Post("/sessions", "user_id=demo&password=demo&device_id=" + device, kForm);
        m_token = login.json["session_token"].asString();
    }

    Answer Get(const std::string& path, const std::string& accept = kJson)
    {
        return ToAnswer(m_client.Get(kApi + path, Headers({{"Accept", accept}})));
    }

    Answer Post(const std::string& path, const std::string& body, const std::string& type, httplib::Headers headers = {})
    {
        return ToAnswer(m_client.Post(kApi + path, Headers(std::move(headers)), body, type));
    }

    Answer Delete(const std::string& path) { return ToAnswer(m_client.Delete(kApi + path, Headers({}))); }

    Answer Put(const std::string& path, const std::string& content, const std::string& revision = "")
    {
        std::vector<std::pair<std::string, std::string>> fields = {{"operation", "create"}};
        if (!revision.empty())
            fields.emplace_back("revision", revision);
        return Post("/folders" + path, MultipartBody(fields, content), kMultipart);
    }

    Answer Chunk(const std::string& path, std::uint64_t total, std::uint64_t offset, const std::string& data, httplib::Headers headers = {})
    {
        headers.emplace("qd_file_size", std::to_string(total));
        headers.emplace("qd_offset", std::to_string(offset));
        headers.emplace("qd_block_size", std::to_string(data.size()));
        return Post("/resume/upload" + path, MultipartBody({}, data), kMultipart, std::move(headers));
    }

    httplib::Headers Headers(httplib::Headers headers) const
    {
        headers.emplace("Cookie", "session_token=" + m_token);
        return headers;
    }

    httplib::Client& Client() { return m_client; }
    [[nodiscard]] const std::string& Token() const { return m_token; }
    void UseToken(const std::string& token) { m_token = token; }

    static inline const std::string kApi = "/sync/1.3";

private:
    httplib::Client m_client;
    std::string m_token;
};

class ApplianceTest : public testing::Test
{
protected:
    ApplianceTest()
    {
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        m_folder = fs::temp_directory_path() / ("appliance-" + std::string(test->name()) + "-" + std::to_string(std::random_device()()));
        fs::create_directories(m_folder);
        m_options.root = m_folder / "root";
        Restart();
    }

    ~ApplianceTest() override
    {
        m_appliance.reset();
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }

    void Restart()
    {
        m_appliance.reset();
        m_appliance = std::make_unique<Appliance>(m_options, m_output);
        m_appliance->Start();
    }

    int Port() const { return m_appliance->Port(); }
    fs::path Root() const { return m_options.root; }

    fs::path m_folder;
    Options m_options;
    std::ostringstream m_output;
    std::unique_ptr<Appliance> m_appliance;
};

TEST_F(ApplianceTest, NothingLeadsOutOfTheRoot)
{
    WriteFile(m_folder / "secret", "secret");
    User user(Port());
    std::vector<std::string> paths = {"/../secret",
                                      "/%2e%2e/secret",
                                      "/home/..%2f..%2fsecret",
                                      "/home/../../secret",
                                      "/./home/../..",
                                      "/.quendra-appliance/sessions.json",
                                      "/.QUENDRA-appliance",
                                      "/home%00/x",
                                      "/%c0%ae%c0%ae/secret",
                                      "/%ed%a0%80",
                                      "/%",
                                      "/%4",
                                      "/" + std::string(5000, 'a')};
    std::error_code noLinks;
    fs::create_directory_symlink(m_folder, Root() / "link", noLinks);
    fs::create_symlink(m_folder / "secret", Root() / "file-link", noLinks);
    if (!noLinks)
        paths.insert(paths.end(), {"/link/secret", "/file-link"});
    for (const auto& path : paths)
    {
        SCOPED_TRACE(path.substr(0, 100));
        for (const auto& answer : {user.Get("/folders" + path, kBytes), user.Get("/folders" + path), user.Put(path, "overwritten"),
                                   user.Delete("/folders" + path), user.Post("/folders/home", "operation=move&path=" + path, kForm)})
        {
            EXPECT_TRUE(answer.status == 400 || answer.status == 404 || answer.status == 409) << answer.status;
            EXPECT_NE(answer.ErrorId(), "no JSON");
        }
    }
    EXPECT_TRUE(fs::exists(Root() / "home"));
    EXPECT_EQ(user.Get("/folders?type=all").json["contents"].size(), 1U) << "links and the state folder are not shown";

    // Where these are names like any other they may be used; where they are not, they lead nowhere.
    for (const auto* const path : {"/..%5csecret", "/home%5c..%5c..%5csecret", "/C:%5csecret", "/C:secret", "/secret:stream", "/NUL"})
        (void)user.Put(path, "overwritten");
    EXPECT_EQ(ReadFile(m_folder / "secret"), "secret");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()), 2);
}

TEST_F(ApplianceTest, MalformedRequestsAreRefusedAndHarmNobody)
{
    User user(Port());
    struct Case
    {
        std::string path;
        std::string body;
        std::string type;
        int status;
    };
    const std::string part = "--{B}\r\nContent-Disposition: form-data; name=";
    const std::vector<Case> cases = {
        {"/sessions", "user_id=%zz", kForm, 400},
        {"/sessions", "user_id=demo", kForm, 400},
        {"/sessions", std::string(5'000'000, 'a'), kForm, 413},
        {"/folders/home", "operation=dance", kForm, 400},
        {"/folders/home", "operation=create", kForm, 400},
        {"/folders/home", "operation=update&creation_time=2015-13-02T10:20:30.5Z", kForm, 400},
        {"/folders/home", "operation=update&attributes=-1", kForm, 400},
        {"/folders/home/f", "", kMultipart, 400},
        {"/folders/home/f", "--{B}--\r\n", kMultipart, 400},
        {"/folders/home/f", part + "\"operation\"\r\n\r\ncreate", kMultipart, 400},
        {"/folders/home/f", "--{B}\r\n\r\nno head\r\n--{B}--\r\n", kMultipart, 400},
        {"/folders/home/f", "--{B}\r\n" + std::string(40'000, 'h'), kMultipart, 400},
        {"/folders/home/f", part + "\"v\"\r\n\r\n" + std::string(100'000, 'v') + "\r\n--{B}--\r\n", kMultipart, 400},
        {"/folders/home/f", part + "\"f\"; filename=\"f\"\r\n\r\nx\r\n" + part + "\"g\"; filename=\"g\"\r\n\r\nx\r\n--{B}--\r\n",
         kMultipart, 400},
        {"/folders/home/f", MultipartBody({{"operation", "create"}}, "x"), "multipart/form-data", 400},
        {"/folders/home/f", MultipartBody({}, "x"), kMultipart, 400},
        {"/folders/nowhere/f", MultipartBody({{"operation", "create"}}, "x"), kMultipart, 404},
        {"/folders/home", MultipartBody({{"operation", "create"}}, "x"), kMultipart, 409},
        {"/resume/upload/home/f", MultipartBody({}, "x"), kMultipart, 400},
        {"/resume/upload/home/f?resume_id=..%2f..%2fx", MultipartBody({}, "x"), kMultipart, 400},
        {"/share", "path=/home&target=x", kForm, 400},
        {"/nothing", "", kForm, 404},
    };
    for (const auto& each : cases)
    {
        SCOPED_TRACE(each.path + " " + each.body.substr(0, 100));
        const auto answer = user.Post(each.path, each.body, each.type);
        EXPECT_EQ(answer.status, each.status);
        EXPECT_NE(answer.ErrorId(), "no JSON");
    }
    EXPECT_EQ(user.Get("/folders/home/f").status, 404);
    user.UseToken("forged");
    EXPECT_EQ(user.Get("/folders").ErrorId(), "6");
    EXPECT_EQ(user.Put("/home/f", Noise(1'000'000)).ErrorId(), "6") << "the refusal reaches a client that sends all before it reads";
}

TEST_F(ApplianceTest, ContentChangesWhollyOrNotAtAll)
{
    User user(Port());
    const auto first = user.Put("/home/f", "old content").Item();
    ASSERT_EQ(first["size"], 11);

    // An upload that breaks off.
    const auto body = MultipartBody({{"operation", "create"}}, Noise(1'000'000));
    const auto breaksOff = [&](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        return offset < body.size() / 2 && sink.write(body.data() + offset, 4096);
    };
    User other(Port());
    EXPECT_FALSE(other.Client().Post(User::kApi + "/folders/home/f", other.Headers({}), body.size(), breaksOff, kMultipart));
    EXPECT_EQ(user.Get("/folders/home/f", kBytes).body, "old content");
    EXPECT_EQ(user.Get("/folders/home/f").Item(), first);

    // An upload over a revision that is no longer there.
    const auto second = user.Put("/home/f", "new content!", first["revision"].asString()).Item();
    EXPECT_EQ(second["size"], 12);
    const auto conflict = user.Put("/home/f", "lost", first["revision"].asString());
    EXPECT_EQ(conflict.status, 409);
    EXPECT_EQ(conflict.ErrorId(), "1077");
    EXPECT_EQ(conflict.Item(), second);
    EXPECT_EQ(user.Delete("/folders/home/f?revision=" + first["revision"].asString()).ErrorId(), "1077");
    EXPECT_EQ(ReadFile(Root() / "home" / "f"), "new content!");

    // A file that somebody changes in the folder itself is another revision.
    WriteFile(Root() / "home" / "f", "changed outside");
    EXPECT_EQ(user.Put("/home/f", "lost", second["revision"].asString()).ErrorId(), "1077");
}

TEST_F(ApplianceTest, RangesEndWhereTheFileEnds)
{
    User user(Port());
    const auto content = Noise(200'000);
    ASSERT_EQ(user.Put("/home/f", content).status, 200);
    const std::pair<const char*, std::string> cases[] = {
        {"skip=65535&count=65538", content.substr(65535, 65538)},
        {"skip=199999&count=9223372036854775807", content.substr(199999)},
        {"skip=200000&count=1", ""},
        {"skip=9223372036854775807&count=9223372036854775807", ""},
        {"count=0", ""},
    };
    for (const auto& [query, expected] : cases)
        EXPECT_TRUE(user.Get("/folders/home/f?" + std::string(query), kBytes).body == expected) << query;
    for (const auto* const query : {"skip=-1&count=1", "skip=1&count=-1", "skip=x", "skip=18446744073709551616", "skip="})
        EXPECT_EQ(user.Get("/folders/home/f?" + std::string(query)).status, 400) << query;
}

TEST_F(ApplianceTest, MovesOverwriteOnlyWhatTheyMay)
{
    User user(Port());
    for (const auto* const folder : {"a", "b"})
        ASSERT_EQ(user.Post("/folders", std::string("operation=create&name=") + folder, kForm).status, 200);
    auto expected = user.Put("/a/f", "from a").Item();
    ASSERT_EQ(user.Put("/b/f", "from b").status, 200);
    const struct
    {
        const char* path;
        const char* form;
        int status;
    } cases[] = {
        {"/a/f", "operation=move&path=/b/f&overwrite=false", 409}, // there is one
        {"/a", "operation=move&path=/b&overwrite=true", 409},      // a folder overwrites nothing
        {"/b/f", "operation=move&path=/a&overwrite=true", 409},    // and is not overwritten
        {"/a", "operation=move&path=/a/sub&overwrite=true", 400},  // into itself
        {"/a/f", "operation=move&path=/b/f/g", 409},               // below a file
        {"/a/f", "operation=update&path=../g", 400},
        {"/a/f", "operation=move&path=/b/f&overwrite=true", 200},
        {"/b", "operation=update&path=c", 200},
    };
    for (const auto& each : cases)
        EXPECT_EQ(user.Post(std::string("/folders") + each.path, each.form, kForm).status, each.status) << each.path << " " << each.form;

    // What was recorded has moved along, and is still there after a restart, behind a record that was cut off.
    m_appliance.reset();
    std::ofstream(Root() / ".quendra-appliance" / "items.jsonl", std::ios::app | std::ios::binary) << "{\"set\":\"/c/f\",\"rev";
    Restart();
    User later(Port());
    expected["orca_path"] = "/c/f";
    EXPECT_EQ(later.Get("/folders/c/f").Item(), expected);
}

TEST_F(ApplianceTest, RefusedChunksAndDeltasLeaveNothing)
{
    User user(Port());
    const std::string path = "/home/f?resume_id=0F8FAD5B-D9CB-469F-A165-70867728950E";
    ASSERT_EQ(user.Chunk(path, 10, 0, "12345", {{"qd_start", "true"}}).status, 200);
    const struct
    {
        std::uint64_t total;
        std::uint64_t offset;
        const char* data;
        const char* finish;
        int status;
    } cases[] = {{10, 6, "x", "", 409}, {10, 5, "678901", "", 400}, {10, 18446744073709551615U, "x", "", 400}, {10, 5, "6", "true", 409}};
    for (const auto& each : cases)
        EXPECT_EQ(user.Chunk(path, each.total, each.offset, each.data, {{"qd_finish", each.finish}}).status, each.status) << each.data;
    EXPECT_EQ(user.Chunk("/home/g" + path.substr(7), 10, 5, "6").status, 404) << "another item's upload";
    for (const auto* const target : {"/home", "/../f2"})
        EXPECT_GE(user.Post("/resume/upload" + path, "--{B}--\r\n", kMultipart, {{"qd_finish", "true"}, {"qd_new_path", target}}).status,
                  400);
    // A chunk that was sent before may come again.
    EXPECT_EQ(user.Chunk(path, 10, 3, "4567890", {{"qd_finish", "true"}}).status, 200);
    EXPECT_EQ(ReadFile(Root() / "home" / "f"), "1234567890");

    const std::string hugeBlocks("rs\x01\x36\x7F\xFF\xFF\xFF\0\0\0\x08", 12);
    for (const auto& delta : {std::string("neither"), hugeBlocks, std::string("rs\x02\x36\x45\0\xFF", 7)})
        EXPECT_EQ(user.Post("/delta/home/f", MultipartBody({{"modification_time", "2020-03-02T10:20:30.123Z"}}, delta), kMultipart).status,
                  ApplianceParts::Delta::IsAvailable() ? 400 : 501);
    EXPECT_EQ(ReadFile(Root() / "home" / "f"), "1234567890");
}

TEST_F(ApplianceTest, TheFeedLosesNothingAndEndsWithTheServer)
{
    User user(Port());
    User other(Port());
    // A reader that hangs up leaves the actions to the session's next one.
    User quitter(Port());
    quitter.UseToken(user.Token());
    quitter.Client().set_read_timeout(std::chrono::milliseconds(100));
    EXPECT_EQ(quitter.Get("/notifs").status, 0);
    ASSERT_EQ(other.Post("/folders", "operation=create&name=x", kForm).status, 200);
    EXPECT_EQ(user.Get("/notifs").json["contents"][0]["m"], "/x");

    // Many that wait hold up nobody.
    std::vector<std::future<int>> waiters;
    for (int index = 0; index < 20; ++index)
        waiters.push_back(std::async(std::launch::async, [this] { return User(Port()).Get("/notifs").status; }));
    EXPECT_EQ(other.Get("/folders").status, 200);
    const auto start = std::chrono::steady_clock::now();
    m_appliance->Stop();
    for (auto& waiter : waiters)
        (void)waiter.get();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(ApplianceTest, ManySessionsAtOnceSeeWholeItems)
{
    constexpr int kUsers = 6;
    constexpr int kRounds = 15;
    std::vector<std::future<std::string>> users;
    for (int index = 0; index < kUsers; ++index)
    {
        users.push_back(std::async(std::launch::async, [this, index]() -> std::string {
            User user(Port(), std::to_string(index));
            const auto own = "own" + std::to_string(index);
            const auto content = Noise(50'000, static_cast<std::uint32_t>(index));
            for (int round = 0; round < kRounds; ++round)
            {
                const auto shared = user.Put("/home/shared", std::string(30'000, static_cast<char>('a' + index)));
                const auto read = user.Get("/folders/home/shared", kBytes).body;
                if (shared.status != 200 || read != std::string(30'000, read.front()))
                    return "the shared file is torn";
                if (user.Put("/home/" + own, content).status != 200 || user.Get("/folders/home/" + own, kBytes).body != content)
                    return "the own file is another's";
                if (user.Post("/folders/home/" + own, "operation=move&path=/" + own, kForm).status != 200)
                    return "the own file cannot be moved";
                if (user.Get("/folders?type=all").status != 200 || user.Delete("/folders/" + own).status != 200)
                    return "the own file cannot be listed or deleted";
            }
            return "";
        }));
    }
    for (auto& user : users)
        EXPECT_EQ(user.get(), "");
    User user(Port());
    EXPECT_EQ(user.Get("/folders/home?type=all").json["contents"].size(), 1U);
}

TEST(HeaderMenderTest, LineEndsComeOutAsTheStandardHasThem)
{
    struct Case
    {
        std::string input;
        std::string output;
        std::string left; // what is the body's
    };
    const std::vector<Case> cases = {
        {"GET / HTTP/1.1\r\nA: b\r\n\r\nrest", "GET / HTTP/1.1\r\nA: b\r\n\r\n", "rest"},
        {"P\r\nT: b=\"x\"\n\r\nA: b\r\n\r\nrest", "P\r\nT: b=\"x\"\r\nA: b\r\n\r\n", "rest"},
        {"P\r\nT: b=\"x\"\n\r\n\r\n\n", "P\r\nT: b=\"x\"\r\n\r\n", "\n"},
        {"P\nA: b\nC: d\n\nrest", "P\r\nA: b\r\nC: d\r\n\r\n", "rest"},
        {"\r\n\nP\r\n\r\nrest", "\r\n\r\nP\r\n\r\n", "rest"},
        {"P\r\nA: b\rc\r\n\r\n", "P\r\nA: b\rc\r\n\r\n", ""},
    };
    for (const auto& each : cases)
    {
        ApplianceParts::HeaderMender mender;
        std::string output;
        std::size_t taken = 0;
        while (taken < each.input.size() && !mender.IsComplete())
            mender.Take(each.input[taken++], output);
        EXPECT_EQ(output, each.output);
        EXPECT_EQ(each.input.substr(taken), each.left);
    }
}

// Notes what comes as text.
class PartNotes final : public ApplianceParts::IMultipartSink
{
public:
    void Field(const std::string& name, const std::string& value) override { m_text += name + "=" + value + ";"; }
    void FileBegin() override { m_text += "file:"; }
    void FileData(std::string_view data) override { m_text += data; }

    [[nodiscard]] const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

TEST(MultipartParserTest, PartsAreTheSameHoweverTheBodyArrives)
{
    const std::string lookalikes = "\r\n--{B\r\n--{B]\r\n\r\n-\r\n--{\r";
    const auto body = MultipartBody({{"empty", ""}, {"a", "1\r\n2"}}, lookalikes);
    for (std::size_t size = 1; size <= body.size(); ++size)
    {
        PartNotes notes;
        ApplianceParts::MultipartParser parser("{B}", notes);
        for (std::size_t offset = 0; offset < body.size(); offset += size)
            parser.Take(std::string_view(body).substr(offset, size));
        parser.Finish();
        ASSERT_EQ(notes.Text(), "empty=;a=1\r\n2;file:" + lookalikes) << size;
    }
}

} // namespace
