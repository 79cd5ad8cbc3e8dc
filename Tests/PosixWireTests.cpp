// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "TextConversion.h"
#include "TransferWire.h"

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
    const std::pair<const wchar_t*, Transfer> cases[] = {
        {L"/held", list}, {L"/notifs", follow}, {L"/d/a.txt", Download()}, {L"/d/a.txt", Upload(0)}, {L"/d/a.txt", Chunk(0, 100)}};
    const TemporaryFolder files;
    Caller caller;
    caller.local = files.Write("file", Pattern(100));
    for (const auto& [key, transfer] : cases)
    {
        SCOPED_TRACE(testing::Message() << key);
        Gate received;
        const Conversation wire([&](RawConnection& connection, const std::string& head) {
            connection.Skip(BodyLength(head));
            received.Open();
            connection.Hold();
        });
        TraceCapture trace;
        auto operation = std::async(std::launch::async, [&, perform = transfer] { return perform(wire.Api(), caller); });
        EXPECT_TRUE(received.Wait());
        EXPECT_EQ(wire.Api().CloseRequestHandle(key), 0U);
        const ResultCode code = operation.get();
        // The server may have read the request before its sender goes on to wait: the handle is gone by then.
        EXPECT_TRUE(code == 12017 || code == 6) << code;
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(key) + "]"));
        EXPECT_EQ(caller.given, nullptr);
    }
}
