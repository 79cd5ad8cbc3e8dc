// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "LibraryOverWire.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <future>

namespace
{

TEST(Wire, ClosingTheRequestEndsWhatTheServerHoldsUp)
{
    std::map<std::string, Transfer> operations = FileTransfers(48 << 20);
    operations["listing"] = [](IQuendraHttpAPI& api, Caller& caller) {
        ServerItemList children;
        return api.GetPathListing(L"/d/a.txt", children, caller.given, nullptr);
    };
    const TemporaryFolder folder;
    for (const auto& [name, operation] : operations)
    {
        SCOPED_TRACE(name);
        const bool isUpload = name.ends_with("upload");
        Gate received;
        RawServer server([&](RawConnection& connection) {
            const std::string head = connection.ReadHead();
            if (!isUpload)
                connection.Skip(BodyLength(head));
            if (!isUpload && name != "listing") // which would take what it has for the whole
                connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
            received.Open();
            connection.Hold();
        });
        const Library library(server);
        Caller caller;
        caller.signature = folder.Write("sent", "");
        caller.local = isUpload ? caller.signature : folder.Write("target", "before");
        std::filesystem::resize_file(folder / "sent", 48 << 20);
        caller.item = MakeItem(48 << 20);
        const TraceCapture trace;
        auto code = std::async(std::launch::async, [&] { return operation(library.Api(), caller); });
        ASSERT_TRUE(received.Wait());
        EXPECT_EQ(library->CloseRequestHandle(L"/d/a.txt"), 0U);
        const ResultCode ended = code.get();
        EXPECT_TRUE(ended == 12017 || ended == 6) << ended << ": in a call, or between two";
        EXPECT_EQ(caller.given, nullptr);
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [/d/a.txt]"));
    }
}

} // namespace
