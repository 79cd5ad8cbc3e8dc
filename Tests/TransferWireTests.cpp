// Transfers over real sockets: every request byte by byte, what becomes of those that are cancelled, closed or broken off on the way, and
// of the caller's files.

#include "CaseFile.h"
#include "LibraryOverWire.h"
#include "Operations.h"
#include "Patterns.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"
#include "Transport/FileHandle.h"

#include "Eventing/EventSink.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <tuple>
#include <utility>

namespace
{

using Texts = std::vector<std::string>;

// Larger than what the system's socket buffers take.
constexpr std::uint64_t kLarge = 48 << 20;

class TransferWire : public testing::Test
{
protected:
    // A caller whose files are there: what uploads send and what downloads write into. A size makes the first one larger, and sparse where
    // the file system can.
    [[nodiscard]] Caller CallerWith(const std::string& content, std::uint64_t size = 0) const
    {
        Caller caller;
        caller.signature = folder.Write("sent", content);
        caller.local = folder.Write("target", "b");
        std::filesystem::resize_file(caller.signature, std::max<std::uint64_t>(size, content.size()));
        caller.item = MakeItem(static_cast<std::int64_t>(std::filesystem::file_size(caller.signature)));
        return caller;
    }

    // Uploads send the file "sent", downloads write the file "target".
    static ResultCode Perform(IQuendraHttpAPI& api, const std::string& name, const Operation& transfer, Caller& caller)
    {
        if (IsUpload(name))
            caller.local = caller.signature;
        return transfer(api, caller);
    }

    const TemporaryFolder folder;
};

// The transfers that send a file.
std::map<std::string, Operation> SendingTransfers(std::int64_t size)
{
    auto transfers = FileTransfers(size);
    transfers.erase("download");
    transfers.erase("range");
    return transfers;
}

// The body that a case describes, with the boundary "G".
std::string BodyOf(const Json::Value& parts, const std::string& content)
{
    std::string body;
    for (const Json::Value& part : parts)
    {
        const std::string text = part.asString();
        const std::string name = text.substr(0, text.find('='));
        std::string value = text.substr(name.size() + 1);
        body += "--G\r\nContent-Disposition: form-data; name=\"" + name + "\"";
        if (name == "file")
        {
            body += "; filename=\"a.txt\"\r\nContent-Type: application/octet-stream";
            value = content.substr(std::stoul(value), std::stoul(value.substr(value.find('+'))));
        }
        body += "\r\n\r\n" + value + "\r\n";
    }
    return parts.isNull() ? "" : body + "--G--\r\n";
}

TEST_F(TransferWire, RequestsGoOutWholeAndNothingMore)
{
    const std::string content = Pattern(100);
    const std::map<std::string, std::string> places = {
        {"sent", (folder / "sent").string()},
        {"target", (folder / "target").string()},
        {"id", "0F8FAD5B-D9CB-469F-A165-70867728950E"},
        {"form", "Content-Type: multipart/form-data; boundary=\"G\""},
        {"chunk", "qd_file_size: 100\nqd_file_creation_time: 2020-01-02T03:04:05.600Z\n"
                  "qd_file_modification_time: 2021-01-02T03:04:05.600Z\nqd_attributes: 32\nqd_revision: 7"}};
    const auto fill = [&places](std::string text) {
        for (const auto& [name, value] : places)
            for (std::size_t at = 0; (at = text.find('$' + name, at)) != std::string::npos; at += value.size())
                text.replace(at, name.size() + 1, value);
        return text;
    };
    const auto lines = [&fill](const Json::Value& texts) {
        std::string all;
        for (const Json::Value& text : texts)
            all += fill(text.asString()) + '\n';
        return all;
    };
    std::map<std::string, Operation> transfers = AllTransfers();
    transfers["range"] = Range(3, 5);
    transfers["first upload"] = Chunk(0, 40, 1);
    transfers["middle upload"] = Chunk(40, 30);
    transfers["last upload"] = Chunk(70, 40);
    transfers["only upload"] = Chunk(0, 100, 1);
    transfers["late upload"] = Chunk(101, 5);
    transfers.erase("chunk upload");
    const Library library(AnswerWith([](const std::string&) { return HttpReply(200, kReply); }));
    library->SetSessionToken(L"abc");
    const Json::Value cases = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Transfers.json");
    EXPECT_EQ(cases.size(), transfers.size());
    for (const Json::Value& each : cases)
    {
        const std::string name = each["name"].asString();
        SCOPED_TRACE(name);
        Caller caller = CallerWith(content);
        if (name == "delta")
            caller.signature = L"\\\\?\\" + caller.signature; // taken off before the file is opened
        const auto progress = std::make_shared<ProgressRecord>();
        caller.progress = progress;
        const TraceCapture trace;
        EXPECT_EQ(Perform(library.Api(), name, transfers.at(name), caller), Result::Success);
        // The calls are exact for what is sent. The platform decides the blocks of what is received.
        const std::string told = each["progress"].asString();
        EXPECT_EQ(IsDownload(name) ? progress->calls.substr(0, told.size()) : progress->calls, told);
        EXPECT_TRUE(!IsDownload(name) || (progress->inOrder && progress->last == kReply.size())) << progress->calls;
        const bool bringsItem = IsUpload(name) || name == "complete";
        EXPECT_EQ(bringsItem, caller.given && caller.given->GetName() == L"new.txt" && caller.given->GetRevision() == "8");
        EXPECT_TRUE(!IsDownload(name) || caller.given == caller.item);

        const std::string request = library.LastRequest();
        const std::string anyBoundary = R"(\{[-0-9A-F]{36}\})";
        const auto boundaries = FindAll(request, anyBoundary);
        EXPECT_LE((std::set<std::vector<std::string>>(boundaries.begin(), boundaries.end()).size()), 1U);
        const std::string masked = ReplaceAll(request, anyBoundary, "G");
        EXPECT_EQ(masked.substr(0, masked.find(" HTTP/1.1\r\n")), fill(each["line"].asString()));
        std::string headers;
        for (const std::string& line : HeaderLines(masked))
            if (!line.starts_with("Host: ") && !line.starts_with("Content-Length: ") && !line.starts_with("Cookie: ") &&
                line != "Connection: Keep-Alive")
                headers += line + '\n';
        EXPECT_EQ(headers, lines(each["headers"]));
        EXPECT_EQ(HeaderValue(request, "Cookie"), "session_token=abc");
        EXPECT_EQ(masked.substr(masked.find("\r\n\r\n") + 4), BodyOf(each["body"], content));
        std::string messages;
        std::string replies;
        for (const TracedEvent& event : trace.Events())
            if (event.IsMessage() && event.level == EVT_INFO.level && event.unit == "NativeHttp")
                (event.function == "CNativeHttp::LogResponse" ? replies : messages) += event.message + '\n';
        EXPECT_EQ(messages, lines(each["messages"]));
        EXPECT_TRUE(replies.empty() || messages.find("Chunk uploaded successfully") == std::string::npos)
            << "of a chunk the item is enough";
    }
    EXPECT_EQ(folder.Read("target"), std::string("b\0\0", 3) + kReply) << "a range goes to its place";
    EXPECT_EQ(library.ConnectionCount(), 1U) << "no byte too many or too few: each next request began where the last one ended";
}

// Serves a transfer to its end. In the middle it calls `meanwhile`.
void ServeLarge(RawConnection& connection, const std::string& head, const std::function<void()>& meanwhile)
{
    constexpr std::uint64_t kFirst = 100'000;
    const bool isUpload = HeaderValue(head, "Accept") == "application/json";
    if (isUpload)
    {
        connection.Skip(kFirst);
        meanwhile();
        connection.Skip(BodyLength(head) - kFirst);
        return connection.Send(HttpReply(200, kReply));
    }
    connection.Skip(BodyLength(head));
    const std::string reply = HttpReply(200, std::string(kLarge, 'x'));
    connection.Send(std::string_view(reply).substr(0, kFirst));
    meanwhile();
    connection.Send(std::string_view(reply).substr(kFirst));
}

TEST_F(TransferWire, ACancelOrAClosedRequestEndsATransferOnItsWayAndACancelOneThatIsNotSent)
{
    for (const auto& [name, transfer] : FileTransfers(kLarge))
    {
        for (const bool closes : {false, true})
        {
            SCOPED_TRACE(name + (closes ? ", closed" : ", cancelled"));
            TraceCapture trace; // ends after the server, whose thread traces where it closes the request
            const Event event;
            Gate moves; // the client has moved a block of the file that is uploaded or downloaded
            std::atomic<IQuendraHttpAPI*> api = nullptr;
            const auto end = [&] {
                EXPECT_TRUE(moves.Wait());
                closes ? static_cast<void>(api.load()->CloseRequestHandle(L"/d/a.txt")) : event.Signal();
            };
            const Library wire(
                AfterHandshake([&](RawConnection& connection, const std::string& head) { ServeLarge(connection, head, end); }));
            api = &wire.Api();
            Caller caller = CallerWith("", kLarge);
            caller.cancel = event;
            const auto record = std::make_shared<ProgressRecord>();
            record->onBlock = [&, name = name] {
                if (IsUpload(name) || record->calls.find("status:") != std::string::npos)
                    moves.Open();
            };
            caller.progress = record;
            const ResultCode code = Perform(wire.Api(), name, transfer, caller);
            EXPECT_TRUE(closes ? code == 12017 || code == 6 || code == 12019 || code == 12018 : code == Result::Cancelled) << code;
            EXPECT_EQ(caller.given, nullptr);
            EXPECT_GT(record->last, 0U);
            EXPECT_LT(record->last, kLarge);
            const std::string target = folder.Read("target");
            EXPECT_TRUE(target == (IsUpload(name) ? "b" : (name == "range" ? "b" : "") + std::string(record->last, 'x')))
                << "what came before stays";
            EXPECT_EQ(wire.Api().CloseRequestHandle(L"/d/a.txt"), 0U);
            EXPECT_EQ(trace.CountOf(EVT_INFO, "Closed Request Handle for [/d/a.txt]"), closes ? 1U : 0U) << "gone with its transfer";

            event.Signal();
            trace.Clear();
            EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), Result::Cancelled);
            const char* const what = IsUpload(name) ? "Upload" : name == "range" ? "DownloadData" : "Download";
            EXPECT_EQ(trace.Messages(EVT_ERROR), Texts{what + std::string(" cancelled")});
            EXPECT_EQ(wire.Served(), 1U) << "of one that is cancelled already nothing reaches the server";
            EXPECT_EQ(folder.Read("target"), target);
            EXPECT_TRUE(std::filesystem::remove(folder / "target") && std::filesystem::remove(folder / "sent")) << "nobody holds them open";
        }
    }
}

TEST_F(TransferWire, AFileMayBeWrittenRenamedAndRemovedWhileItIsSent)
{
    for (const auto& [name, transfer] : SendingTransfers(kLarge))
    {
        SCOPED_TRACE(name);
        const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            constexpr std::uint64_t kFirst = 100'000;
            connection.Skip(kFirst);
            EXPECT_TRUE(std::fstream(folder / "sent") << "x");
            std::filesystem::rename(folder / "sent", folder / "renamed");
            std::filesystem::remove(folder / "renamed");
            connection.Skip(BodyLength(head) - kFirst);
            connection.Send(HttpReply(200, kReply));
        }));
        Caller caller = CallerWith("", kLarge);
        EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), 0U);
    }
}

TEST_F(TransferWire, ABrokenOrRefusedTransferEndsInItsCodeAndNoneInASuccess)
{
    // What is true of every end of a transfer whose reply has this body, where it has one to keep.
    const auto expectFiles = [&](const std::string& name, const Json::Value& body, ResultCode code, const Caller& caller) {
        const bool bringsItem = code == 21077 && IsUpload(name);
        EXPECT_EQ(caller.given != nullptr, bringsItem || (code == 0 && IsDownload(name)));
        EXPECT_TRUE(!bringsItem || (caller.given && caller.given->GetName() == L"new.txt"));
        const std::string received = (name == "range" ? "b" : "") + body.asString();
        EXPECT_EQ(folder.Read("target"), body.isNull() ? "" : IsDownload(name) ? received : "b");
        EXPECT_EQ(std::filesystem::remove(folder / "target"), !body.isNull()) << "one without a body to keep makes no file";
        EXPECT_TRUE(std::filesystem::remove(folder / "sent")) << "nobody holds it open";
    };
    for (const Json::Value& each : CasesOf("FaultCases.json", "endings of transfers"))
        for (const bool resets : {false, true})
        {
            SCOPED_TRACE(each[0].asString() + (resets ? ", reset" : ", closed"));
            // The server closes the connection: the next transfer must not use it.
            const std::string reply =
                each[1].isString() ? each[1].asString() : HttpReply(each[1][0].asInt(), each[1][1].asString(), "Connection: close\r\n");
            const std::uint64_t reads = each.get(4, Json::UInt64{UINT64_MAX}).asUInt64(); // of the request's body, at most
            const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
                connection.Skip(std::min(reads, BodyLength(head)));
                connection.Send(reply);
                if (resets)
                    connection.Reset();
                throw ConnectionEnded();
            }));
            std::map<ResultCode, std::string> outcomes;
            for (const auto& [name, transfer] : AllTransfers(kLarge))
            {
                SCOPED_TRACE(name);
                Caller caller = CallerWith("content", reads == UINT64_MAX ? 0 : kLarge);
                if (each[3].isNull())
                    std::filesystem::remove(folder / "target");
                const TraceCapture trace;
                const ResultCode code = Perform(wire.Api(), name, transfer, caller);
                // The platforms report a lost connection differently; Wine passes the socket's own error on (10054, a reset).
                const bool isLost = code == 10054 || (code == 12152 && reply.find("\r\n\r\n") == std::string::npos);
                std::string& transfers = outcomes[isLost ? Result::ConnectionBroken : code];
                transfers += (transfers.empty() ? "" : ", ") + name;
                EXPECT_EQ(trace.Has(EVT_ERROR, "Failed to extract attributes from response"), code == 13 && name != "metadata");
                expectFiles(name, each[3], code, caller);
            }
            std::string told;
            for (const auto& [code, transfers] : outcomes)
                told += (told.empty() ? "" : "; ") + std::to_string(code) + ": " + (outcomes.size() == 1 ? "all" : transfers);
            EXPECT_EQ(told, each[2].asString());
        }
}

// What a transfer ends in then is in Steps.json.
TEST(FileHandle, FailsWithTheErrorOfItsPath)
{
    const TemporaryFolder folder;
    const FileHandle written(folder.Write("written", "kept"), GENERIC_WRITE, 0, OPEN_EXISTING);
    const FileHandle read(folder.Write("read", "kept"), GENERIC_READ, kShareAll, OPEN_EXISTING);
    // Paths and the errors of one who sends and of one who receives; 0: it is open.
    const std::tuple<std::string, DWORD, DWORD> cases[] = {{(folder / "missing").string(), 2, 2},
                                                           {(folder / "no folder" / "missing").string(), 3, 3},
                                                           {(folder / "read").string() + '\0' + "x", 123, 123},
                                                           {(folder / "written").string(), 32, 32},
                                                           {(folder / "read").string(), 0, 32},
                                                           // A device, on Linux.
                                                           {"/dev/zero", 50, 0}};
    for (const auto& [path, sending, receiving] : cases)
    {
        if (path.starts_with("/dev") && !std::filesystem::exists(path))
            continue;
        SCOPED_TRACE(path);
        const std::wstring wide = std::filesystem::path(path).wstring();
        const FileHandle sent(wide, GENERIC_READ, kShareAll, OPEN_EXISTING);
        EXPECT_EQ(sent.IsOpen() ? 0 : GetLastError(), sending);
        const FileHandle received(wide, GENERIC_WRITE, 0, OPEN_EXISTING);
        EXPECT_EQ(received.IsOpen() ? 0 : GetLastError(), receiving);
    }
}

TEST_F(TransferWire, AFileThatChangesBetweenMeasuringAndSendingKeepsTheAnnouncedLength)
{
    const std::string content = Pattern(100'000);
    for (const auto& [name, transfer] : SendingTransfers(100'000))
    {
        for (const std::uint64_t size : {150'000U, 99'999U})
        {
            SCOPED_TRACE(name + ": " + std::to_string(size));
            std::string body;
            Gate ended;
            const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
                const std::shared_ptr<void> atEnd(nullptr, [&](void*) { ended.Open(); });
                connection.Skip(BodyLength(head), [&](std::string_view piece) {
                    body += piece;
                    if (body.size() < BodyLength(head) && body.ends_with("}--\r\n"))
                        throw ConnectionEnded(); // what was announced will never come
                });
                connection.Send(HttpReply(200, kReply));
            }));
            Caller caller = CallerWith(content);
            std::pair file(folder / "sent", size);
            const auto take = [](void* context, const Eventing::Event* event) {
                const auto& [path, newSize] = *static_cast<decltype(file)*>(context);
                if (std::string_view(event->message != nullptr ? event->message : "").starts_with("Size request for ["))
                    std::filesystem::resize_file(path, newSize);
            };
            const auto previous = std::exchange(EventProviderHandle, OpenEventSink(4, Eventing::kAnyKeyword, take, &file));
            const std::shared_ptr<void> atEnd(nullptr, [&](void*) { CloseEventSink(std::exchange(EventProviderHandle, previous)); });
            const bool shrinks = size < content.size();
            const bool isShort = shrinks && name == "chunk upload"; // found out before anything is sent
            EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), shrinks ? Result::EndOfFile : 0U);
            EXPECT_EQ(caller.given == nullptr, shrinks);
            EXPECT_TRUE(isShort || ended.Wait()) << "nobody waits for the rest of the body";
            EXPECT_EQ(body.find("\r\n\r\n" + content + "\r\n--{") == std::string::npos, shrinks);
            EXPECT_EQ(Perform(wire.Api(), name, transfer, caller), isShort ? Result::EndOfFile : 0U);
        }
    }
}

} // namespace
