// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "LibraryOverWire.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "TransferSupport.h"

#include <gtest/gtest.h>

#include <future>

TEST(Wire, ClosingTheRequestEndsAReceiveThatTheServerHoldsOpen)
{
    struct Case
    {
        const wchar_t* key;
        Transfer operation;
        std::string message; // none where the server may have the whole body before its sender has seen the last write through
    };
    const Transfer list = [](IQuendraHttpAPI& api, Caller& caller) {
        ServerItemList children;
        return api.GetPathListing(L"/held", children, caller.given, nullptr);
    };
    const Transfer follow = [](IQuendraHttpAPI& api, Caller&) {
        std::list<CNotificationAction*> actions;
        return api.GetChanges(actions);
    };
    const Case cases[] = {
        {L"/held", list, "GetResponse failed, error code: "},
        {L"/notifs", follow, "ERROR: GetResponse failed, error code: "},
        {L"/d/a.txt", Download(), "SendRequestGetResponse failed, error code: "},
        {L"/d/a.txt", Upload(0), ""},
        {L"/d/a.txt", Chunk(0, 100), ""},
    };
    const TemporaryFolder files;
    Caller caller;
    caller.local = files.Write("file", Pattern(100));
    for (const Case& held : cases)
    {
        SCOPED_TRACE(testing::Message() << held.key << held.message);
        Gate received;
        RawServer server(AfterHandshake([&](RawConnection& connection, const std::string& head) {
            connection.Skip(BodyLength(head));
            received.Open();
            connection.Hold();
        }));
        const Library library(server);
        ASSERT_EQ(library.ShakeHands(), 0U);
        TraceCapture trace;
        auto operation = std::async(std::launch::async, [&] { return held.operation(library.Api(), caller); });
        EXPECT_TRUE(received.Wait());
        EXPECT_EQ(library->CloseRequestHandle(held.key), 0U);
        const ResultCode code = operation.get();
        // The server may have read the request before its sender goes on to wait: the handle is gone by then.
        EXPECT_TRUE(code == 12017 || code == 6) << code;
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(held.key) + "]"));
        EXPECT_TRUE(held.message.empty() || trace.Has(EVT_ERROR, held.message + std::to_string(code))) << trace;
        EXPECT_EQ(caller.given, nullptr);
    }
}
