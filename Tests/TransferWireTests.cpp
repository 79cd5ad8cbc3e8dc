// Transfers over real sockets: every request byte by byte, and what becomes of those that are cancelled, closed or broken off on
// the way.

#include "LibraryOverWire.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <algorithm>
#include <atomic>

namespace
{

// Larger than what the system's socket buffers take.
constexpr std::uint64_t kLarge = 48 << 20;

// A server that serves as a test says, and a client that has shaken hands with it. What the test says uses lives longer.
class Conversation
{
public:
    explicit Conversation(std::function<void(RawConnection&, const std::string& head)> serve)
        : m_server(AfterHandshake(std::move(serve))), m_library(m_server)
    {
        EXPECT_EQ(m_library.ShakeHands(), 0U);
    }

    [[nodiscard]] IQuendraHttpAPI& Api() const { return m_library.Api(); }

private:
    const RawServer m_server;
    const Library m_library;
};

class TransferWire : public testing::Test
{
protected:
    // A caller whose files are there: what uploads send and what downloads write into.
    [[nodiscard]] Caller CallerWith(const std::string& content, const std::string& target = "before") const
    {
        Caller caller;
        caller.item = MakeItem(static_cast<std::int64_t>(content.size()));
        caller.signature = folder.Write("sent", content);
        caller.local = folder.Write("target", target);
        return caller;
    }

    // One whose files are large, and sparse where the file system can.
    [[nodiscard]] Caller LargeCaller() const
    {
        Caller caller = CallerWith("");
        std::filesystem::resize_file(folder / "sent", kLarge);
        caller.item = MakeItem(kLarge);
        return caller;
    }

    // Uploads send the file "sent", downloads write the file "target".
    static ResultCode Perform(IQuendraHttpAPI& api, const std::string& name, const Transfer& transfer, Caller& caller)
    {
        if (IsUpload(name))
            caller.local = caller.signature;
        return transfer(api, caller);
    }

    const TemporaryFolder folder;
};

TEST_F(TransferWire, RequestsGoOutWholeAndNothingMore)
{
    const std::string content = Pattern(100);
    const std::string guid = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    const std::string resume = "/sync/resume/upload/d/a.txt?resume_id=" + guid;
    const std::string sent = (folder / "sent").string();
    const std::string target = (folder / "target").string();

    // Bodies.
    const auto part = [](const std::string& name, const std::string& value) {
        return "--G\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    };
    const auto file = [](const std::string& bytes) {
        return "--G\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.txt\"\r\n"
               "Content-Type: application/octet-stream\r\n\r\n" +
               bytes + "\r\n--G--\r\n";
    };
    const std::string created = part("creation_time", "2020-01-02T03:04:05.600Z");
    const std::string modified = part("modification_time", "2021-01-02T03:04:05.600Z");
    const std::string rest = part("attributes", "32") + part("size", "100") + part("revision", "7");

    // Headers, without the cookie and the length, which come last.
    const std::string json = "Accept: application/json\n";
    const std::string bytes = "Accept: application/octet-stream\n";
    const std::string form = "Content-Type: multipart/form-data; boundary=\"G\"\n";
    const std::string start = "qd_start: true\n";
    const std::string finish = "qd_finish: true\n";
    const auto chunk = [&](const std::string& offset, const std::string& length, const std::string& markers) {
        return "qd_file_size: 100\nqd_file_creation_time: 2020-01-02T03:04:05.600Z\n"
               "qd_file_modification_time: 2021-01-02T03:04:05.600Z\nqd_attributes: 32\nqd_revision: 7\nqd_offset: " +
               offset + "\nqd_block_size: " + length + '\n' + markers + json + form;
    };

    // What is told.
    const std::string taken = "Extracted attributes from upload reply";
    const auto uploading =
        [&](const std::string& length, const std::string& offset, const std::string& clamped, const std::string& markers) {
        return "Uploading " + length + "-byte chunk of [" + sent + "] from " + offset + " with GUID [" + guid + "]\n" + clamped +
               "Endpoint: [" + resume + "]\n" + markers + "Chunk uploaded successfully: " + sent + '\n' + taken + '\n';
    };
    const std::string begins = "Sending begin marker\n", ends = "Sending end marker\n";
    const std::string tag = "Uploading [" + sent + "] with API tag [7]\n";
    const std::string uploaded = "Revision: 7\nFile uploaded successfully: " + sent + '\n' + taken;
    const std::string paths = "LocalPath: " + target + ", ServerPath: /d/a.txt\n";
    const std::string scrubbed = "Scrubbed LocalPath: " + target + "\nRevision: 7\n";
    const std::string downloaded = "\nSuccessfully downloaded file: " + target + '\n';

    struct Case
    {
        std::string name;
        Transfer run;
        std::string line;
        std::string headers;
        std::string body;
        std::string told;
    };
    const Case cases[] = {
        {"upload", Upload(0), "POST /sync/folders/d/a.txt", json + form,
         part("operation", "create") + created + modified + rest + file(content),
         tag + "Upload local path: [" + sent +
             "] for server path: [/d/a.txt]\nEndpoint: [/sync/folders/d/a.txt]\nMod time: [2021-01-02T03:04:05.600Z]\n" + uploaded + '\n'},
        {"delta upload", Upload(1), "POST /sync/delta/d/a.txt", json + form, modified + created + rest + file(content),
         tag + "Upload local path: '" + sent +
             "' for server path: '/d/a.txt'\nEndpoint: '/sync/delta/d/a.txt'\nMod time: '2021-01-02T03:04:05.600Z'\n" + uploaded +
             ", Rev: 8\n"},
        {"first upload", Chunk(0, 40, 1), "POST " + resume, chunk("0", "40", start), file(content.substr(0, 40)),
         uploading("40", "0", "", begins)},
        {"middle upload", Chunk(40, 30), "POST " + resume, chunk("40", "30", ""), file(content.substr(40, 30)),
         uploading("30", "40", "", "")},
        {"last upload", Chunk(70, 40), "POST " + resume, chunk("70", "30", finish), file(content.substr(70)),
         uploading("40", "70", "New length: 30\n", ends)},
        {"only upload", Chunk(0, 100, 1), "POST " + resume, chunk("0", "100", start + finish), file(content),
         uploading("100", "0", "", begins + ends)},
        {"late upload", Chunk(101, 5), "POST " + resume, chunk("101", "0", ""), file(""), uploading("5", "101", "New length: 0\n", "")},
        {"complete", kComplete, "POST " + resume, finish + "qd_new_path: /d/b c.txt\n" + json + form, "--G--\r\n",
         "Completing upload of [/d/a.txt] to [/d/b c.txt] with GUID [" + guid + "]\nEndpoint: [" + resume +
             "]\nChunk completed successfully\n" + taken + '\n'},
        {"cancel", kCancel, "DELETE " + resume, json, "",
         "Cancelling upload to [/d/a.txt], guid:" + guid + "\nEndpoint [" + resume + "]\nSuccessfully cancelled upload to [/d/a.txt]\n"},
        {"metadata", kMetadata, "GET " + resume, json, "",
         "Metadata request for [/d/a.txt] Guid:[" + guid + "]\nEndpoint: " + resume + '\n'},
        {"download", Download(), "GET /sync/folders/d/a.txt?revision=7", bytes, "",
         "Download request for " + paths + scrubbed + "Complete download request: /sync/folders/d/a.txt?revision=7" + downloaded},
        {"delta", DeltaDownload(), "POST /sync/delta/d/a.txt?revision=7", bytes + form, file(content),
         "Download Delta request for " + paths + scrubbed + "Endpoint: '/sync/delta/d/a.txt?revision=7'" + downloaded},
        {"range", Range(3, 5), "GET /sync/folders/d/a.txt?skip=3&count=5&revision=7", bytes, "",
         "Download data request for " + paths + "Revision: 7\nDownloadData request [/sync/folders/d/a.txt?skip=3&count=5&revision=7]\n" +
             "Successfully downloaded data into file: " + target + '\n'},
    };
    RawServer server(AnswerEach([](const std::string& request) {
        const std::string handshake = AnswerHandshake(request);
        return handshake.empty() ? HttpReply(200, kReply) : handshake;
    }));
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    library->SetSessionToken(L"abc");
    for (const Case& transfer : cases)
    {
        SCOPED_TRACE(transfer.name);
        Caller caller = CallerWith(content);
        const TraceCapture trace;
        EXPECT_EQ(Perform(library.Api(), transfer.name, transfer.run, caller), 0U);

        std::string head = server.Requests().back();
        std::string body = head.substr(head.find("\r\n\r\n") + 4);
        head.resize(head.size() - body.size());
        const std::string length = transfer.body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + '\n';
        const std::string type = HeaderValue(head, "Content-Type");
        if (const std::size_t quote = type.find('"'); quote != std::string::npos)
        {
            const std::string boundary = type.substr(quote + 1, type.size() - quote - 2);
            ASSERT_EQ(boundary.size(), 38U);
            for (std::string* const text : {&head, &body})
                for (std::size_t at = text->find(boundary); at != std::string::npos; at = text->find(boundary))
                    text->replace(at, boundary.size(), "G");
        }
        EXPECT_EQ(head.substr(0, head.find("\r\n")), transfer.line + " HTTP/1.1");
        std::string headers;
        for (const std::string& line : HeaderLines(head))
            if (!line.starts_with("Host: ") && line != "Connection: Keep-Alive" && line != "Content-Length: 0") // the platform's own
                headers += line + '\n';
        EXPECT_EQ(headers, transfer.headers + "Cookie: session_token=abc\n" + length);
        EXPECT_EQ(body, transfer.body);
        std::string told;
        bool repliesInFull = false;
        for (const TracedEvent& event : trace.Events())
            if (event.IsMessage() && event.level == EVT_INFO.level && event.unit == "NativeHttp")
            {
                if (event.function == "CNativeHttp::LogResponse")
                    repliesInFull = true;
                else
                    told += event.message + '\n';
            }
        EXPECT_EQ(told, transfer.told);
        EXPECT_FALSE(repliesInFull && told.find("Chunk uploaded successfully") != std::string::npos) << "of a chunk the item is enough";
    }
    EXPECT_EQ(folder.Read("target"), "bef" + kReply) << "a range goes to its place";
    EXPECT_EQ(server.ConnectionCount(), 1U) << "no byte too many or too few: each next request began where the last one ended";
}

// Serves a transfer in the middle of which something happens; afterwards it goes on to its end, had nothing happened.
void ServeLarge(RawConnection& connection, const std::string& head, const std::function<void()>& meanwhile)
{
    const std::string block(1 << 16, 'x');
    const bool givesItem = HeaderValue(head, "Accept") == "application/json";
    std::uint64_t left = BodyLength(head);
    if (left != 0)
    {
        connection.Skip(100'000);
        meanwhile();
        for (left -= 100'000; left > 0; left -= std::min<std::uint64_t>(left, block.size()))
            connection.Skip(std::min<std::uint64_t>(left, block.size()));
    }
    if (givesItem)
        return connection.Send(HttpReply(200, kReply));
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kLarge) + "\r\n\r\n");
    for (std::uint64_t sent = 0; sent < kLarge; sent += block.size())
    {
        connection.Send(block);
        if (sent == block.size())
            meanwhile();
    }
}

TEST_F(TransferWire, ACancelEndsATransferOnItsWay)
{
    for (const auto& [name, transfer] : FileTransfers(kLarge))
    {
        SCOPED_TRACE(name);
        const Event event;
        const Conversation wire(
            [&](RawConnection& connection, const std::string& head) { ServeLarge(connection, head, [&] { event.Signal(); }); });
        Caller caller = LargeCaller();
        caller.cancel = event.Cancel();
        const auto record = std::make_shared<ProgressRecord>();
        caller.progress = record;
        EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), 1223U);
        EXPECT_EQ(caller.given, nullptr);
        EXPECT_GT(record->moved, 0U);
        EXPECT_LT(record->moved, kLarge);
        const std::string target = folder.Read("target");
        // What came before stays.
        EXPECT_TRUE(name == "range" || target == (name == "download" ? std::string(record->moved, 'x') : "before"));
    }
}

TEST_F(TransferWire, ClosingItsRequestEndsATransferOnItsWay)
{
    TraceCapture trace;
    std::atomic<IQuendraHttpAPI*> api = nullptr;
    const Conversation wire([&](RawConnection& connection, const std::string& head) {
        ServeLarge(connection, head, [&] { EXPECT_EQ(api.load()->CloseRequestHandle(L"/d/a.txt"), 0U); });
    });
    api = &wire.Api();
    for (const auto& [name, transfer] : FileTransfers(kLarge))
    {
        SCOPED_TRACE(name);
        Caller caller = LargeCaller();
        trace.Clear();
        const ResultCode code = Perform(wire.Api(), name, transfer, caller);
        EXPECT_TRUE(code == 12017 || code == 6 || code == 12019 || code == 12018) << code;
        EXPECT_EQ(caller.given, nullptr);
        EXPECT_EQ(wire.Api().CloseRequestHandle(L"/d/a.txt"), 0U);
        EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [/d/a.txt]"), 1U) << "gone from the map with its transfer";
    }
}

TEST_F(TransferWire, ProgressIsToldInOrderUpToTheTotal)
{
    const std::string content = Pattern(100'000);
    const Conversation wire([&](RawConnection& connection, const std::string& head) {
        connection.Skip(BodyLength(head));
        connection.Send(HttpReply(200, HeaderValue(head, "Accept") == "application/json" ? kReply : content));
    });
    const std::string blocks = "16384@16384 16384@32768 16384@49152 16384@65536 16384@81920 16384@98304 1696@100000 ";
    const std::string chunk = "16384@26384 16384@42768 7232@50000 ";
    for (const auto& [name, transfer] : std::map<std::string, Transfer>{{"upload", Upload(0)},
                                                                        {"delta upload", Upload(1)},
                                                                        {"chunk upload", Chunk(10'000, 40'000)},
                                                                        {"download", Download()},
                                                                        {"delta", DeltaDownload()},
                                                                        {"range", Range(1, 100'000)}})
    {
        SCOPED_TRACE(name);
        Caller caller = CallerWith(content);
        const auto record = std::make_shared<ProgressRecord>();
        caller.progress = record;
        EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), 0U);
        EXPECT_EQ(record->moved, name == "chunk upload" ? 40'000U : name == "delta" ? 200'000U : 100'000U);
        EXPECT_EQ(record->last, name == "chunk upload" ? 50'000U : 100'000U);
        EXPECT_TRUE(!IsUpload(name) || record->calls == (name == "chunk upload" ? chunk : blocks)) << record->calls;
        EXPECT_TRUE(IsUpload(name) || record->calls.find("status:4 ") == (name == "delta" ? blocks.size() : 0U)) << record->calls;
        EXPECT_EQ(record->inOrder, name != "delta") << "a delta tells of the signature first";
        EXPECT_TRUE(IsUpload(name) || folder.Read("target") == (name == "range" ? "b" : "") + content);
    }
}

TEST_F(TransferWire, ABrokenTransferIsNeverASuccess)
{
    // Where several codes stand, the kinds of transfer or the platforms' transports differ.
    using Codes = std::vector<ResultCode>;
    const Codes closed = {12030, 12152};
    const Codes reset = {12030, 12152, 10054};
    constexpr std::uint64_t kAll = ~std::uint64_t{0};
    struct Case
    {
        const char* what;
        bool isUpload;
        std::uint64_t reads; ///< bytes of the body, at most
        std::string reply;
        bool resets;
        Codes expected;
        std::string content = "before"; ///< of what a download writes, afterwards
    };
    const std::string whole = Pattern(1000);
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n";
    const Case cases[] = {
        {"closed before the reply", false, kAll, "", false, closed},
        {"reset before the reply", false, kAll, "", true, reset},
        {"closed in the status", false, kAll, "HTTP/1.1 2", false, closed},
        {"reset in the status", false, kAll, "HTTP/1.1 2", true, reset},
        {"closed before the body", false, kAll, head, false, {12030}, ""},
        {"closed in the body", false, kAll, head + whole.substr(0, 300), false, {12030}, whole.substr(0, 300)},
        {"closed before the last byte", false, kAll, head + whole.substr(0, 999), false, {12030}, whole.substr(0, 999)},
        {"refused", false, kAll, HttpReply(404, R"({"errorId":"5"})"), false, {20005, 20404}},
        {"refused, and cut", false, kAll, "HTTP/1.1 404 No\r\nContent-Length: 1000\r\n\r\n{", false, {20000, 20404}},
        {"part of it", false, kAll, HttpReply(206, whole), false, {20000, 20206}},
        {"nothing of it", false, kAll, "HTTP/1.1 204 No\r\n\r\n", false, {20000, 20204}},
        {"closed in the body", true, 100'000, "", false, {12030, 12152, 10054, 12002}},
        {"reset before the body", true, 0, "", true, reset},
        {"reset in the body", true, 100'000, "", true, reset},
        {"closed before the reply", true, kAll, "", false, closed},
        {"reset before the reply", true, kAll, "", true, reset},
        {"closed in the status", true, kAll, "HTTP/1.1 2", false, closed},
        {"closed before the reply's body", true, kAll, head, false, {12152, 13}},
        {"closed in the reply", true, kAll, head + kReply.substr(0, 40), false, {13}},
        {"refused", true, kAll, HttpReply(503, "busy"), false, {20503}},
    };
    for (const Case& broken : cases)
    {
        for (const auto& [name, transfer] : FileTransfers(kLarge))
        {
            if (IsUpload(name) != broken.isUpload)
                continue;
            SCOPED_TRACE(std::string(broken.what) + ", " + name);
            const Conversation wire([&](RawConnection& connection, const std::string& received) {
                connection.Skip(std::min(broken.reads, BodyLength(received)));
                connection.Send(broken.reply);
                if (broken.resets)
                    connection.Reset();
                throw ConnectionEnded();
            });
            Caller caller = broken.reads == kAll ? CallerWith("content") : LargeCaller();
            const ResultCode code = Perform(wire.Api(), name, transfer, caller);
            EXPECT_TRUE(std::count(broken.expected.begin(), broken.expected.end(), code) != 0) << code;
            EXPECT_EQ(caller.given, nullptr);
            std::string content = broken.content;
            if (name == "range" && content != "before") // its place is the second byte
                content = "b" + content + std::string("before").substr(std::min<std::size_t>(content.size() + 1, 6));
            EXPECT_EQ(folder.Read("target"), content);
            EXPECT_TRUE(std::filesystem::remove(folder / "target")) << "nobody holds it open";
            if (broken.content == "before")
            {
                static_cast<void>(transfer(wire.Api(), caller));
                EXPECT_FALSE(std::filesystem::exists(folder / "target")) << "a download without a body to keep makes no file";
            }
            EXPECT_TRUE(std::filesystem::remove(folder / "sent")) << "nobody holds it open";
        }
    }
}

} // namespace
