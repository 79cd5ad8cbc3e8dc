// One piece of work, done by the library or by the HTTP library below it alone. `measure.py` runs the two in turn and compares them.
//
//     work serve [ADDRESS]                                serves the work on a free port, prints it, ends at the end of its input
//     work PEER KIND SERVER COUNT [SIZE] [THREADS]        prints the elapsed and the processor time, in seconds
//
// SERVER is a port of 127.0.0.1, or a URL with a port.
// PEER is `library` (with a cancel event and a progress callback, as clients use it), `no-event` (the library without them), `plain` or, on
// Windows, `plain-event`, which tests a cancel event after each block, too.
// KIND is `attributes`, `idle` (the same after SIZE seconds), `listing` (of SIZE items), `download` or `upload` (of SIZE bytes); COUNT
// requests in all. Connections and the handshake are made before the time is taken.
// With QUENDRA_TIMELINE=FILE the library's trace becomes a timeline in that file.

#include "Attributes.h"
#include "PlainTransfer.h"
#include "RawServer.h"
#include "Replies/JsonLibrary.h"
#include "TextConversion.h"
#include "Tracing.h"

#include "Eventing/Timeline.h"
#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <latch>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr const char* kItem = R"({"name":"Quarterly report.docx","revision":"4f9c2e7a-1","directory":false,)"
                              R"("creation_time":"2015-03-02T10:20:30.1234567Z","modification_time":"2016-02-29T23:59:59.7654321Z",)"
                              R"("size":1,"attributes":32,"permissions":"WRITE","folder_permissions":"WRITE"})";

void Require(bool holds, const std::string& what)
{
    if (!holds)
        throw std::runtime_error(what);
}

void RequireSuccess(ResultCode code, const char* operation)
{
    Require(code == Result::Success, std::string(operation) + " failed: " + std::to_string(code));
}

std::string Listing(std::uint64_t items)
{
    std::string reply(kItem);
    reply.back() = ',';
    reply += R"("contents":[)";
    for (std::uint64_t i = 0; i < items; ++i)
        reply += (i == 0 ? "" : ",") + std::string(kItem);
    return reply + "]}";
}

// Serves items, listings ("/sync/folders/ITEMS?type=all"), files ("/sync/folders/SIZE") and a place for uploads.
void Serve(RawConnection& connection)
{
    constexpr std::string_view kNumber = "GET /sync/folders/";
    const std::string block(1U << 20U, 'q');
    for (;;)
    {
        const std::string head = connection.ReadHead();
        connection.Skip(std::strtoull(HeaderValue(head, "Content-Length").c_str(), nullptr, 10));
        const std::string target = head.substr(0, head.find(" HTTP/"));
        const std::uint64_t number = target.starts_with(kNumber) ? std::strtoull(target.c_str() + kNumber.size(), nullptr, 10) : 0;
        if (target == "GET /endpoints")
            connection.Send(HttpReply(200, R"({"sync":{"1.3":{"path":"/sync"}}})"));
        else if (target == "GET /sync/init")
            connection.Send(HttpReply(200, R"({"device_token_auth":true})"));
        else if (target.ends_with("?type=all"))
            connection.Send(HttpReply(200, Listing(number)));
        else if (number == 0)
            connection.Send(HttpReply(200, kItem));
        else
        {
            // In one piece with the first bytes: a second short one would wait for the client's acknowledgement.
            std::string first = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(number) + "\r\n\r\n";
            std::uint64_t left = number;
            for (std::string_view piece; left != 0; left -= piece.size())
            {
                piece = std::string_view(block).substr(0, left);
                connection.Send(first.empty() ? piece : first.append(piece));
                first.clear();
            }
        }
    }
}

struct Work
{
    std::string kind;
    BenchmarkServer server;
    std::uint64_t size = 0;
};

BenchmarkServer ServerOf(const std::string& text)
{
    const auto colon = text.rfind(':');
    const std::string origin = colon == std::string::npos ? "http://127.0.0.1" : text.substr(0, colon);
    return {origin, static_cast<std::uint16_t>(std::stoi(text.substr(colon + 1)))};
}

// One thread's requests.
using Request = std::function<void(const std::string& file)>;

Request RequestOf(const Work& work, PlainTransfer& plain)
{
    const std::string path = "/sync/folders/" + (work.kind == "download"  ? std::to_string(work.size)
                                                 : work.kind == "listing" ? std::to_string(work.size) + "?type=all"
                                                                          : "a");
    if (work.kind == "download")
        return [&plain, path](const std::string& file) { plain.Download(path, file); };
    if (work.kind == "upload")
        return [&plain, path](const std::string& file) { plain.Upload(path, file); };
    return [&plain, path](const std::string&) {
        const std::string reply = plain.Get(path);
        Json::Value root;
        Require(ReadJson(reply, Comments::Skip, root), "The reply is not JSON");
    };
}

class Progress final : public IProgressCallback
{
    void OnBlock(std::uint64_t, std::uint64_t position) override { m_position = position; }
    void OnStatusSize(std::uint32_t) override {}

    volatile std::uint64_t m_position = 0;
};

class Client
{
public:
    Client(const Work& work, bool hasEvent)
        : m_work(work),
          m_api(CreateInstance(L"benchmark")),
          m_cancel{hasEvent ? CreateEventW(nullptr, TRUE, FALSE, nullptr) : nullptr},
          m_progress(hasEvent ? std::make_shared<Progress>() : nullptr)
    {
        m_api->SetServer(work.server.origin.c_str());
        m_api->SetPort(work.server.port);
        std::uint32_t mode = 0;
        std::uint32_t value = 0;
        RequireSuccess(m_api->Init(mode, value), "Init");
    }
    ~Client()
    {
        m_api->Release();
        if (m_cancel.event != nullptr)
            CloseHandle(m_cancel.event);
    }

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    [[nodiscard]] Request RequestOf()
    {
        if (m_work.kind == "download")
            return [this](const std::string& file) {
                std::shared_ptr<IServerAttributes> taken;
                RequireSuccess(m_api->DownloadFile(L"/" + std::to_wstring(m_work.size), ToWide(file), std::make_shared<CServerAttributes>(),
                                                   taken, L"", m_cancel, m_progress),
                               "DownloadFile");
            };
        if (m_work.kind == "upload")
            return [this](const std::string& file) {
                std::shared_ptr<IServerAttributes> item = std::make_shared<CServerAttributes>();
                const std::uint32_t asDelta = 0;
                RequireSuccess(m_api->UploadFile(ToWide(file), L"/a", item, &asDelta, m_cancel, m_progress), "UploadFile");
            };
        if (m_work.kind == "listing")
            return [this](const std::string&) {
                std::shared_ptr<IServerAttributes> folder;
                ServerItemList items;
                RequireSuccess(m_api->GetPathListing(L"/" + std::to_wstring(m_work.size), items, folder, nullptr), "GetPathListing");
            };
        return [this](const std::string&) {
            if (m_work.kind == "idle")
                std::this_thread::sleep_for(std::chrono::seconds(m_work.size));
            std::shared_ptr<IServerAttributes> taken;
            RequireSuccess(m_api->GetPathAttributes(L"/a", taken), "GetPathAttributes");
        };
    }

private:
    const Work m_work;
    IQuendraHttpAPI* m_api;
    const CancelEvent m_cancel;
    const std::shared_ptr<Progress> m_progress;
};

void Perform(const std::string& peer, const Work& work, int count, int threads)
{
    Require(peer == "library" || peer == "no-event" || peer == "plain" || peer == "plain-event", "unknown peer " + peer);
    Require(work.kind == "attributes" || work.kind == "idle" || work.kind == "listing" || work.kind == "download" || work.kind == "upload",
            "unknown kind " + work.kind);
    const auto folder = std::filesystem::temp_directory_path() / ("quendra-work-" + std::to_string(work.server.port) + peer);
    std::filesystem::create_directories(folder);
    const std::shared_ptr<void> atEnd(nullptr, [&](void*) { std::filesystem::remove_all(folder); });

    const auto client = peer.starts_with("plain") ? nullptr : std::make_unique<Client>(work, peer == "library");
    std::vector<std::unique_ptr<PlainTransfer>> connections(static_cast<std::size_t>(threads));
    std::latch ready(threads + 1);
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
        all.emplace_back([&, i] {
            const std::string file = (folder / std::to_string(i)).string();
            {
                std::ofstream out(file, std::ios::binary);
                const std::string block(1U << 20U, 'q');
                for (std::uint64_t left = work.kind == "upload" ? work.size : 0; left != 0;
                     left -= std::min<std::uint64_t>(left, block.size()))
                    out.write(block.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(left, block.size())));
            }
            auto& plain = connections[static_cast<std::size_t>(i)];
            plain = client ? nullptr : ConnectPlainly(work.server, peer == "plain-event");
            const Request request = client ? client->RequestOf() : RequestOf(work, *plain);
            request(file);
            ready.arrive_and_wait();
            for (int each = i; each < count; each += threads)
                request(file);
        });
    ready.arrive_and_wait();
    const auto start = std::chrono::steady_clock::now();
    const double processor = ProcessorSeconds();
    for (std::thread& thread : all)
        thread.join();
    const double used = ProcessorSeconds() - processor;
    std::printf("%.6f %.6f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), used);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::vector<std::string> words(argv + 1, argv + argc);
        if (!words.empty() && words.size() <= 2 && words[0] == "serve")
        {
            const RawServer server(Serve, words.size() == 2 ? words[1] : "127.0.0.1");
            std::cout << server.Port() << std::endl;
            std::cin.ignore(std::numeric_limits<std::streamsize>::max());
            return 0;
        }
        Require(words.size() >= 4, "usage: work serve [ADDRESS] | work PEER KIND SERVER COUNT [SIZE] [THREADS]");
        if (const char* const file = std::getenv("QUENDRA_TIMELINE"))
            EventProviderHandle = OpenEventSink(4, Eventing::kAnyKeyword, &AddToTimeline, OpenTimeline(file)); // until the process ends
        Perform(words[0], {words[1], ServerOf(words[2]), words.size() > 4 ? std::stoull(words[4]) : 0}, std::stoi(words[3]),
                words.size() > 5 ? std::stoi(words[5]) : 1);
        return 0;
    }
    catch (const std::exception& problem)
    {
        std::fprintf(stderr, "work: %s\n", problem.what());
        return 1;
    }
}
