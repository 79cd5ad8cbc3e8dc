// The sample server where no well-behaved client leads it: what it refuses, what it keeps whole, and many clients at once. Appliance.json
// holds requests and their answers.

#include "Appliance.h"
#include "CaseFile.h"
#include "Delta.h"
#include "Multipart.h"
#include "TransferSupport.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <gtest/gtest.h>
#include <json/reader.h>

#include <future>
#include <set>
#include <sstream>

namespace
{

namespace asio = boost::asio;

using ApplianceParts::Appliance;
using asio::ip::tcp;
using ErrorCode = boost::system::error_code;
using Headers = std::map<std::string, std::string>;

struct Answer
{
    int status = 0;
    std::string body;
    Json::Value json;

    [[nodiscard]] std::string ErrorId() const { return json["errorId"].asString(); }
    [[nodiscard]] Json::Value Item() const { return json["document_info"]; }
};

// A request, its body and the status that it is answered with.
using Case = std::tuple<std::string, std::string, int>;

std::string Multipart(const std::string& fields, const std::string& file)
{
    return fields + "--{B}\r\nContent-Disposition: form-data; name=\"file\"; filename=\"x\"\r\n\r\n" + file + "\r\n--{B}--\r\n";
}

std::string Field(const std::string& name, const std::string& value)
{
    return "--{B}\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

const std::string kUpload = "?resume_id=0F8FAD5B-D9CB-469F-A165-70867728950E";
const std::string kCreate = Field("operation", "create");

// A connection; bytes go out as they are.
class Wire
{
public:
    explicit Wire(const Appliance& appliance)
    {
        socket.connect({asio::ip::address_v4::loopback(), static_cast<unsigned short>(appliance.Port())});
    }

    void Send(const std::string& bytes)
    {
        ErrorCode ended; // the server may refuse before it has read everything
        asio::write(socket, asio::buffer(bytes), ended);
    }

    // Everything that comes until the server ends the connection.
    std::string Rest()
    {
        std::string replies;
        ErrorCode ended;
        asio::read(socket, asio::dynamic_buffer(replies), ended);
        return replies;
    }

    // The statuses of all replies that come, one space behind each, when nothing more will be sent.
    std::string Statuses()
    {
        ErrorCode ended;
        socket.shutdown(tcp::socket::shutdown_send, ended);
        const auto replies = Rest();
        std::string statuses;
        for (auto at = replies.find("HTTP/1."); at != std::string::npos; at = replies.find("HTTP/1.", at + 1))
            statuses += replies.substr(at + 9, 4);
        return statuses;
    }

    asio::io_context context;
    tcp::socket socket{context};
};

// A client with a session of its own.
class User
{
public:
    explicit User(const Appliance& appliance) : server(appliance)
    {
        const auto login = Ask("POST /sessions", "user_id=demo&password=demo&device_id=device");
        headers = {{"Cookie", "session_token=" + login.json["session_token"].asString()}};
    }

    // A body that begins with a boundary is multipart, another a form, unless a header says something else.
    [[nodiscard]] std::string Request(const std::string& line, const std::string& body = "", const Headers& more = {}) const
    {
        auto text = line;
        text.insert(line.find(' ') + 1, "/sync/1.3")
            .append(" HTTP/1.1\r\nConnection: close\r\nContent-Length: ")
            .append(std::to_string(body.size()));
        Headers all = more;
        all.insert(headers.begin(), headers.end());
        all.try_emplace("Content-Type",
                        body.starts_with("--{B}") ? "multipart/form-data; boundary=\"{B}\"" : "application/x-www-form-urlencoded");
        for (const auto& [name, value] : all)
            text.append("\r\n").append(name).append(": ").append(value);
        return text + "\r\n\r\n" + body;
    }

    [[nodiscard]] Answer Ask(const std::string& line, const std::string& body = "", const Headers& more = {}) const
    {
        Wire wire(server);
        wire.Send(Request(line, body, more));
        const auto reply = wire.Rest();
        Answer answer{std::stoi(reply.substr(9, 3)), reply.substr(reply.find("\r\n\r\n") + 4), {}};
        if (answer.body.starts_with('{'))
            std::istringstream(answer.body) >> answer.json;
        EXPECT_TRUE(answer.status < 400 || !answer.ErrorId().empty()) << line << " is refused without a reason";
        return answer;
    }

    void Expect(const std::vector<Case>& cases) const
    {
        for (const auto& [request, body, status] : cases)
            EXPECT_EQ(Ask(request, body).status, status) << request << " " << body.substr(0, 100);
    }

    // The cases of a group of Appliance.json.
    void ExpectAll(const char* group) const
    {
        for (const Json::Value& each : CasesOf("Appliance.json", group))
            Expect({{each[0].asString(), each[1].asString(), each[2].asInt()}});
    }

    [[nodiscard]] std::string Content(const std::string& path) const { return Ask("GET /folders" + path + "?skip=0").body; }

    [[nodiscard]] Answer Put(const std::string& path, const std::string& content, const std::string& revision = "") const
    {
        return Ask("POST /folders" + path, Multipart(kCreate + Field("revision", revision), content));
    }

    [[nodiscard]] int Chunk(const std::string& path, std::uint64_t offset, const std::string& data, const char* flag = "qd_no_flag") const
    {
        return Ask("POST /resume/upload" + path, Multipart("", data),
                   {{"qd_file_size", "10"},
                    {"qd_offset", std::to_string(offset)},
                    {"qd_block_size", std::to_string(data.size())},
                    {flag, "true"}})
            .status;
    }

    const Appliance& server;
    Headers headers;
};

class ApplianceTest : public testing::Test
{
protected:
    std::unique_ptr<Appliance> Start()
    {
        ApplianceParts::Options options;
        options.root = folder / "root";
        options.mostConnections = mostConnections;
        auto started = std::make_unique<Appliance>(options, output);
        started->Start();
        return started;
    }

    const TemporaryFolder folder;
    std::ostringstream output;
    const std::size_t mostConnections = 25;
    std::unique_ptr<Appliance> appliance = Start();
    User user{*appliance};
};

TEST_F(ApplianceTest, NothingLeadsOutOfTheRoot)
{
    static_cast<void>(folder.Write("secret", "secret"));
    user.Expect({{"POST /folders/home", "operation=create&name=sub", 200}});
    const auto isRefused = [this](const std::string& path) {
        for (const auto& answer :
             {user.Ask("GET /folders" + path + "?skip=0"), user.Ask("GET /folders" + path), user.Put(path, "overwritten"),
              user.Ask("DELETE /folders" + path), user.Ask("POST /folders/home/sub", "operation=move&path=" + path)})
            EXPECT_TRUE(std::set({400, 404, 409}).contains(answer.status)) << answer.status << " " << path.substr(0, 100);
    };
    for (const Json::Value& path : CasesOf("Appliance.json", "outside"))
        isRefused(path.asString());
    isRefused("/" + std::string(5000, 'a'));
    std::error_code noLinks;
    std::filesystem::create_directory_symlink(folder / "", folder / "root/link", noLinks);
    std::filesystem::create_symlink(folder / "secret", folder / "root/file-link", noLinks);
    for (const char* path : {"/link/secret", "/file-link"})
        if (!noLinks)
            isRefused(path);
    EXPECT_EQ(user.Ask("GET /folders?type=all").json["contents"].size(), 1U) << "links and the state folder are not shown";

    // Where these are names like any other they may be used; where they are not, they lead nowhere.
    for (const auto* const path : {"/..%5csecret", "/home%5c..%5c..%5csecret", "/C:%5csecret", "/C:secret", "/secret:stream", "/NUL"})
        (void)user.Put(path, "overwritten");
    EXPECT_EQ(folder.Read("secret"), "secret");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder / ""), {}), 2);
}

TEST_F(ApplianceTest, MalformedRequestsAreRefusedAndHarmNobody)
{
    const std::string put = "POST /folders/home/f";
    user.ExpectAll("malformed");
    user.Expect({{"POST /sessions", std::string(5'000'000, 'a'), 413},
                 {put, "--{B}\r\n" + std::string(40'000, 'h'), 400},
                 {put, Field("v", std::string(100'000, 'v')) + "--{B}--\r\n", 400}});
    EXPECT_EQ(user.Ask(put, Multipart(kCreate, "x"), {{"Content-Type", "multipart/form-data"}}).status, 400);
    EXPECT_EQ(user.Ask(put, "", {{"Content-Type", "multipart/form-data; boundary=b"}}).status, 400);
    EXPECT_EQ(user.Ask("POST /resume/upload/home/f" + kUpload, Multipart("", "x")).ErrorId(), "14") << "a proxy drops qd_ headers";
    user.headers = {{"Cookie", "session_token=forged"}};
    EXPECT_EQ(user.Ask("GET /folders").ErrorId(), "6");
    EXPECT_EQ(user.Put("/home/f", Pattern(1'000'000)).ErrorId(), "6") << "the refusal reaches a client that sends all before it reads";
}

TEST_F(ApplianceTest, ContentChangesWhollyOrNotAtAll)
{
    const auto first = user.Put("/home/f", "old content").Item();
    ASSERT_EQ(first["size"], 11);

    // An upload that breaks off.
    Wire other(*appliance);
    other.Send(user.Request("POST /folders/home/f", Multipart(kCreate, Pattern(1'000'000))).substr(0, 500'000));
    EXPECT_EQ(other.Statuses(), "400 ");
    EXPECT_EQ(user.Content("/home/f"), "old content");
    EXPECT_EQ(user.Ask("GET /folders/home/f").Item(), first);

    // A file that somebody changes in the folder itself is another revision.
    static_cast<void>(folder.Write("root/home/f", "changed outside"));
    EXPECT_EQ(user.Put("/home/f", "lost", first["revision"].asString()).ErrorId(), "1077");
    EXPECT_EQ(user.Ask("DELETE /folders/home/f?revision=" + first["revision"].asString()).ErrorId(), "1077");
    EXPECT_EQ(folder.Read("root/home/f"), "changed outside");
}

TEST_F(ApplianceTest, RangesEndWhereTheFileEnds)
{
    const auto content = Pattern(200'000);
    ASSERT_EQ(user.Put("/home/f", content).status, 200);
    for (const auto& [query, expected] :
         std::map<std::string, std::string>{{"skip=65535&count=65538", content.substr(65535, 65538)},
                                            {"skip=199999&count=9223372036854775807", content.substr(199999)},
                                            {"skip=200000&count=1", ""},
                                            {"skip=9223372036854775807", ""},
                                            {"count=0", ""}})
        EXPECT_TRUE(user.Ask("GET /folders/home/f?" + query).body == expected) << query;
    user.ExpectAll("ranges");
}

TEST_F(ApplianceTest, MovesOverwriteOnlyWhatTheyMay)
{
    user.Expect({{"POST /folders", "operation=create&name=a", 200}, {"POST /folders", "operation=create&name=b", 200}});
    auto expected = user.Put("/a/f", "from a").Item();
    ASSERT_EQ(user.Put("/b/f", "from b").status, 200);
    user.ExpectAll("moves");

    // What was recorded has moved along, and is still there after a restart, behind a record that was cut off.
    appliance = nullptr;
    std::ofstream(folder / "root/.quendra-appliance/items.jsonl", std::ios::app | std::ios::binary) << "{\"set\":\"/c/f\",\"rev";
    appliance = Start();
    expected["orca_path"] = "/c/f";
    EXPECT_EQ(User(*appliance).Ask("GET /folders/c/f").Item(), expected);
}

TEST_F(ApplianceTest, RefusedChunksAndDeltasLeaveNothing)
{
    const std::string path = "/home/f" + kUpload;
    ASSERT_EQ(user.Chunk(path, 0, "12345", "qd_start"), 200);
    EXPECT_EQ(user.Chunk(path, 6, "x"), 409) << "a gap";
    EXPECT_EQ(user.Chunk(path, 5, "678901"), 400) << "beyond the end";
    EXPECT_EQ(user.Chunk(path, UINT64_MAX, "x"), 400);
    EXPECT_EQ(user.Chunk(path, 5, "6", "qd_finish"), 409) << "too early";
    EXPECT_EQ(user.Chunk("/home/g" + kUpload, 5, "6"), 404) << "another item's upload";
    EXPECT_EQ(user.Ask("POST /resume/upload" + path, "", {{"qd_new_path", "/home"}}).status, 409);
    EXPECT_EQ(user.Ask("POST /resume/upload" + path, "", {{"qd_new_path", "/../f2"}}).status, 400);
    EXPECT_EQ(user.Chunk(path, 0, "12345"), 200) << "a late chunk of a connection that the client has closed";
    EXPECT_EQ(user.Ask("GET /resume/upload" + path).json["bytes_received"], 6) << "it takes nothing back";
    auto cut = user.Request("POST /resume/upload" + path, Multipart("", "99999"), {{"qd_offset", "0"}, {"qd_block_size", "5"}});
    cut.resize(cut.size() - 13);
    Wire late(*appliance);
    late.Send(cut);
    EXPECT_EQ(late.Statuses(), "400 ");
    EXPECT_EQ(user.Ask("GET /resume/upload" + path).json["bytes_received"], 6) << "a late chunk that breaks off takes nothing back";
    EXPECT_EQ(user.Chunk(path, 3, "4567890", "qd_finish"), 200) << "a chunk that was sent before may come again";
    EXPECT_EQ(folder.Read("root/home/f"), "1234567890");

    // A signature comes alone, a delta with fields.
    const std::string hugeBlocks("rs\x01\x36\x7F\xFF\xFF\xFF\0\0\0\x08", 12);
    const std::string time = Field("modification_time", "2020-03-02T10:20:30.123Z");
    for (const auto& body :
         {Multipart("", hugeBlocks), Multipart(time, "neither"), Multipart(time, std::string("rs\x02\x36\x45\0\xFF", 7))})
        user.Expect({{"POST /delta/home/f", body, ApplianceParts::Delta::IsAvailable() ? 400 : 501}});
    EXPECT_EQ(folder.Read("root/home/f"), "1234567890");
}

TEST_F(ApplianceTest, TheFeedLosesNothingAndEndsWithTheServer)
{
    User other(*appliance);
    // A reader that hangs up leaves the actions to the session's next one.
    Wire(*appliance).Send(user.Request("GET /notifs"));
    other.Expect({{"POST /folders", "operation=create&name=x", 200}});
    EXPECT_EQ(user.Ask("GET /notifs").json["contents"][0]["m"], "/x");

    // Many that wait hold up nobody.
    std::vector<std::future<Answer>> waiters;
    for (int index = 0; index < 20; ++index)
        waiters.push_back(std::async(std::launch::async, [this] { return User(*appliance).Ask("GET /notifs"); }));
    other.Expect({{"GET /folders", "", 200}});
    const auto start = std::chrono::steady_clock::now();
    appliance->Stop();
    waiters.clear();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(ApplianceTest, HostileRequestsGetOneReplyEach)
{
    Json::Value cases = CasesOf("Appliance.json", "hostile");
    const auto addTooLong = [&cases](const std::string& begin, std::size_t size, const char* statuses) {
        Json::Value& added = cases.append(Json::arrayValue);
        added.append(begin + std::string(size, 'x') + "\r\n\r\n");
        added.append(statuses);
    };
    addTooLong("GET /sync/1.3/version HTTP/1.1\r\nX: ", 100'000, "431 ");
    addTooLong("POST /sync/1.3/sessions HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n", 200'000, "400 ");
    for (const Json::Value& each : cases)
    {
        Wire wire(*appliance);
        wire.Send(each[0].asString());
        EXPECT_EQ(wire.Statuses(), each[1].asString()) << each[0].asString().substr(0, 200);
    }
}

TEST_F(ApplianceTest, SlowConnectionsMakeRoomForNewOnes)
{
    // Heads that never end, a byte now and then.
    std::vector<std::unique_ptr<Wire>> slow;
    while (slow.size() < mostConnections + 5)
        slow.push_back(std::make_unique<Wire>(*appliance));
    std::promise<void> done;
    const auto trickle = std::async(std::launch::async, [&slow, isDone = done.get_future()] {
        do
            for (const auto& each : slow)
                each->Send("G");
        while (isDone.wait_for(std::chrono::milliseconds(10)) == std::future_status::timeout);
    });
    const auto start = std::chrono::steady_clock::now();
    {
        User other(*appliance);
        for (User* each : {&other, &user})
            EXPECT_EQ(each->Ask("GET /folders").status, 200);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    done.set_value();
}

TEST_F(ApplianceTest, ManySessionsAtOnceSeeWholeItems)
{
    const auto use = [this](int index) {
        User client(*appliance);
        const auto own = "/own" + std::to_string(index);
        const auto content = Pattern(50'000 + static_cast<std::size_t>(index));
        for (int round = 0; round < 15; ++round)
        {
            client.Expect({{"POST /folders/home/shared", Multipart(kCreate, std::string(30'000, static_cast<char>('a' + index))), 200},
                           {"POST /folders/home" + own, Multipart(kCreate, content), 200}});
            const auto read = client.Content("/home/shared");
            EXPECT_TRUE(read == std::string(30'000, read.front())) << "the shared file is torn";
            EXPECT_TRUE(client.Content("/home" + own) == content) << "the own file is another's";
            client.Expect({{"POST /folders/home" + own, "operation=move&path=" + own, 200},
                           {"GET /folders?type=all", "", 200},
                           {"DELETE /folders" + own, "", 200}});
        }
    };
    std::vector<std::future<void>> users;
    for (int index = 0; index < 6; ++index)
        users.push_back(std::async(std::launch::async, use, index));
    users.clear();
    EXPECT_EQ(user.Ask("GET /folders/home?type=all").json["contents"].size(), 1U);
}

TEST(MultipartTest, PartsAreTheSameHoweverTheBodyArrives)
{
    const TemporaryFolder folder;
    const std::string lookalikes = "\r\n--{B\r\n--{B]\r\n\r\n-\r\n--{\r";
    const auto body = Multipart(Field("empty", "") + Field("a", "1\r\n2"), lookalikes);
    for (std::size_t size = 1; size < 50; ++size)
    {
        ApplianceParts::Request request;
        request.header = [](std::string_view) { return std::optional<std::string>("Multipart/form-data ; boundary={B}"); };
        request.readBody = [&, rest = std::string_view(body)]() mutable {
            const auto piece = rest.substr(0, size);
            rest.remove_prefix(piece.size());
            return piece;
        };
        const auto upload = ApplianceParts::ReadUpload(request, folder / "f");
        ASSERT_EQ(upload.fields, (ApplianceParts::Fields{{"empty", ""}, {"a", "1\r\n2"}})) << size;
        ASSERT_EQ(folder.Read("f"), lookalikes) << size;
    }
}

TEST(ApplianceCommandLineTest, ArgumentsAreCheckedOneByOne)
{
    for (const Json::Value& each : CasesOf("Appliance.json", "arguments"))
    {
        std::vector<std::string> arguments;
        for (const Json::Value& argument : each[0])
            arguments.push_back(argument.asString());
        const std::string message = each[2].asString();
        std::ostringstream output;
        int status = 0;
        EXPECT_EQ(ApplianceParts::ParseCommandLine(arguments, output, output, status).has_value(), message.empty()) << message;
        EXPECT_EQ(status, each[1].asInt()) << message;
        EXPECT_NE(output.str().find(message), std::string::npos) << output.str();
    }
}

} // namespace
