// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "LibraryOverWire.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "TransferSupport.h"

#include <future>

TEST(Wire, ClosingTheRequestEndsAReceiveThatTheServerHoldsOpen)
{
    const Transfer list = [](IQuendraHttpAPI& api, Caller& caller) {
        ServerItemList children;
        return api.GetPathListing(L"/held", children, caller.given, nullptr);
    };
    const Transfer follow = [](IQuendraHttpAPI& api, Caller&) {
        std::list<CNotificationAction*> actions;
        return api.GetChanges(actions);
    };
    // A message is not told where the server may have the whole body before its sender has seen the last write through.
    const std::tuple<const wchar_t*, Transfer, std::string> cases[] = {
        {L"/held", list, "GetResponse failed, error code: "},
        {L"/notifs", follow, "ERROR: GetResponse failed, error code: "},
        {L"/d/a.txt", Download(), "SendRequestGetResponse failed, error code: "},
        {L"/d/a.txt", Upload(0), ""},
        {L"/d/a.txt", Chunk(0, 100), ""},
    };
    const TemporaryFolder files;
    Caller caller;
    caller.local = files.Write("file", Pattern(100));
    for (const auto& [key, transfer, message] : cases)
    {
        SCOPED_TRACE(testing::Message() << key << message);
        Gate received;
        RawServer server(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            connection.Skip(BodyLength(head));
            received.Open();
            connection.Hold();
        }));
        const Library library(server);
        ASSERT_EQ(library.ShakeHands(), 0U);
        TraceCapture trace;
        auto operation = std::async(std::launch::async, [&, perform = transfer] { return perform(library.Api(), caller); });
        EXPECT_TRUE(received.Wait());
        EXPECT_EQ(library->CloseRequestHandle(key), 0U);
        const ResultCode code = operation.get();
        // The server may have read the request before its sender goes on to wait: the handle is gone by then.
        EXPECT_TRUE(code == 12017 || code == 6) << code;
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(key) + "]"));
        EXPECT_TRUE(message.empty() || trace.Has(EVT_ERROR, message + std::to_string(code))) << trace;
        EXPECT_EQ(caller.given, nullptr);
    }
}
