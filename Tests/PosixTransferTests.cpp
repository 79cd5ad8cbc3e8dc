// What downloads leave on a full disk, endings of a reply that Wine's WinHTTP does not tell apart, and the end of an operation that waits
// for the server: Wine's WinHTTP does not end a blocked receive when its handle is closed.

#include "TransferWire.h"

#include <csignal>
#include <future>
#include <sys/resource.h>

namespace
{

std::ptrdiff_t OpenFiles()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

TEST_F(TransferWire, ADownloadOntoAFullDiskKeepsWhatFoundRoom)
{
    // The last block finds room for a part of it, and no other follows to find none.
    const std::string content = Pattern(100'100);
    const auto before = OpenFiles();
    std::signal(SIGXFSZ, SIG_IGN);
    {
        const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            connection.Skip(BodyLength(head));
            connection.Send(HttpReply(200, content));
        }));
        for (const auto& [name, transfer] : FileTransfers(100'100))
        {
            if (!IsDownload(name))
                continue;
            SCOPED_TRACE(name);
            Caller caller = CallerWith("");
            const auto record = std::make_shared<ProgressRecord>();
            caller.progress = record;
            rlimit unlimited{};
            ::getrlimit(RLIMIT_FSIZE, &unlimited);
            const rlimit limit{100'000, unlimited.rlim_max};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            const std::shared_ptr<void> atEnd(nullptr, [&](void*) { ::setrlimit(RLIMIT_FSIZE, &unlimited); });
            EXPECT_EQ(transfer(wire.Api(), caller), 112U);
            EXPECT_EQ(caller.given, nullptr);
            EXPECT_EQ(folder.Read("target"), ((name == "range" ? "b" : "") + content).substr(0, 100'000));
            EXPECT_LE(record->last, 100'000U);
        }
    }
    EXPECT_EQ(OpenFiles(), before);
}

TEST_F(TransferWire, ABodyWithoutALengthIsWholeOnlyAtAnEndOfItsOwnAndNothingStaysOpen)
{
    const std::string part = kReply.substr(0, 40);
    const std::string chunk = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n28\r\n" + part;
    const std::string cut = "0: cancel; 13: chunk upload, complete, delta upload, metadata, upload; 12030: delta, download, range";
    const std::string whole = "0: cancel, delta, download, range; 13: chunk upload, complete, delta upload, metadata, upload";
    const auto before = OpenFiles();
    for (const bool resets : {false, true})
        for (const Ending& ending :
             {Ending{"in the headers", "HTTP/1.1 200 OK\r\nContent-Le", "12030: all", {}}, Ending{"in a chunk", chunk, cut, part},
              Ending{"after a chunk", chunk + "\r\n", cut, part}, Ending{"in the last chunk", chunk + "\r\n0\r\n", cut, part},
              Ending{"after the last chunk", chunk + "\r\n0\r\n\r\n", whole, part},
              Ending{"of the connection", "HTTP/1.1 200 OK\r\n\r\n" + part, resets ? cut : whole, part}})
            ExpectCodes(ending, resets);
    EXPECT_EQ(OpenFiles(), before);
}

TEST_F(TransferWire, ClosingTheRequestEndsAReceiveThatTheServerHoldsOpen)
{
    const std::pair<const wchar_t*, Operation> cases[] = {{L"/held", List(L"/held")},
                                                          {L"/notifs", Call(&Api::GetChanges)},
                                                          {L"/d/a.txt", Download()},
                                                          {L"/d/a.txt", Upload(0)},
                                                          {L"/d/a.txt", Chunk(0, 100)}};
    for (const auto& [key, transfer] : cases)
    {
        SCOPED_TRACE(testing::Message() << key);
        Gate received;
        const Library wire(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            connection.Skip(BodyLength(head));
            received.Open();
            connection.Hold();
        }));
        Caller caller = CallerWith(Pattern(100));
        caller.local = caller.signature;
        const TraceCapture trace;
        auto operation = std::async(std::launch::async, [&, perform = transfer] { return perform(wire.Api(), caller); });
        EXPECT_TRUE(received.Wait());
        EXPECT_EQ(wire->CloseRequestHandle(key), Result::Success);
        const ResultCode code = operation.get();
        // The server may have read the request before its sender goes on to wait: the handle is gone by then.
        EXPECT_TRUE(code == 12017 || code == Result::InvalidHandle) << code;
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(key) + "]"));
        EXPECT_EQ(caller.given, nullptr);
    }
}

} // namespace
