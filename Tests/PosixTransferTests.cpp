// Downloads onto a disk that is full, and what transfers leave open, over real sockets.

#include "LibraryOverWire.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <csignal>
#include <sys/resource.h>

namespace
{

// Lets no file of this process grow further.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &m_before); }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
};

TEST(TransferDisk, WhenFullEndsADownloadWithItsError)
{
    const std::string content = Pattern(300'000);
    RawServer server(AfterHandshake([&](RawConnection& connection, const std::string& head) {
        connection.Skip(BodyLength(head));
        connection.Send(HttpReply(200, content));
    }));
    const TemporaryFolder folder;
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    TraceCapture trace;
    for (const auto& [name, transfer] : {std::pair{"whole", Download()}, std::pair{"delta", DeltaDownload()}})
    {
        SCOPED_TRACE(name);
        Caller caller;
        caller.signature = folder.Write("signature", "s");
        const auto record = std::make_shared<ProgressRecord>();
        caller.progress = record;
        for (const wchar_t* const target : {L"/dev/full", L""})
        {
            caller.local = *target != L'\0' ? target : (folder / "target").wstring();
            trace.Clear();
            const FileSizeLimit limit(100'000);
            EXPECT_EQ(transfer(library.Api(), caller), 112U);
            EXPECT_TRUE(trace.Has(EVT_ERROR, "WriteFile failed, error code: 112"));
            EXPECT_EQ(caller.given, nullptr);
        }
        EXPECT_EQ(folder.Read("target"), content.substr(0, 100'000)) << "what found room stays";
        EXPECT_LE(record->last, 100'000U);
    }
}

TEST(Transfers, LeaveNothingOpenHoweverTheyEnd)
{
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const TemporaryFolder folder;
    const auto before = descriptors();
    for (const std::string reply : {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc",
                                    "HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n"})
    {
        RawServer server([&](RawConnection& connection) {
            connection.ReadRequest();
            connection.Send(reply);
        });
        const Library library(server);
        for (const auto& [name, transfer] : FileTransfers())
        {
            SCOPED_TRACE(name + ": " + reply);
            Caller caller;
            caller.signature = folder.Write("sent", Pattern(100));
            caller.local = IsUpload(name) ? caller.signature : folder.Write("target", "before");
            const ResultCode code = transfer(library.Api(), caller);
            EXPECT_NE(code, 0U);
            // Wine's WinHTTP takes a reply that ends in its headers for a whole one.
            EXPECT_TRUE(!reply.ends_with("Content-Le") || (code == 12030 && (IsUpload(name) || folder.Read("target") == "before")));
            caller.local = (folder / "missing" / "file").wstring();
            EXPECT_NE(transfer(library.Api(), caller), 0U);
        }
    }
    EXPECT_EQ(descriptors(), before);
}

} // namespace
