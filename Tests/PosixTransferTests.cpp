// Downloads onto a full disk, and ends of a reply that Wine's WinHTTP does not tell apart.

#include "TransferWire.h"

#include <csignal>
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
    // A part of the last block fits on the disk.
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

TEST_F(TransferWire, ABodyOfUnannouncedLengthIsWholeOnlyAtAnEndOfItsOwn)
{
    const std::string part = kReply.substr(0, 40);
    const std::string chunk = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n28\r\n" + part;
    const std::string cut = "0: cancel; 13: chunk upload, complete, delta upload, metadata, upload; 12030: delta, download, range";
    const std::string whole = "0: cancel, delta, download, range; 13: chunk upload, complete, delta upload, metadata, upload";
    const auto before = OpenFiles();
    for (const bool resets : {false, true})
        for (const Ending& ending : {Ending{"in a chunk", chunk, cut, part}, Ending{"after a chunk", chunk + "\r\n", cut, part},
                                     Ending{"in the last chunk", chunk + "\r\n0\r\n", cut, part},
                                     Ending{"after the last chunk", chunk + "\r\n0\r\n\r\n", whole, part},
                                     Ending{"of the connection", "HTTP/1.1 200 OK\r\n\r\n" + part, resets ? cut : whole, part}})
            ExpectCodes(ending, resets);
    EXPECT_EQ(OpenFiles(), before);
}

} // namespace
