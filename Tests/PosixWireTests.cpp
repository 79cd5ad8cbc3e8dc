// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "Attributes.h"
#include "LibraryOverWire.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <gtest/gtest.h>

#include <thread>

namespace
{

TEST(Wire, ClosingTheRequestEndsAReceiveThatTheServerHoldsOpen)
{
    struct Case
    {
        const wchar_t* key;
        std::string request;
        std::function<ResultCode(IQuendraHttpAPI&)> operation;
        std::string message; // none where the server may have the whole body before its sender has seen the last write through
    };
    const auto list = [](IQuendraHttpAPI& api) {
        ServerItemList children;
        std::shared_ptr<IServerAttributes> folder;
        return api.GetPathListing(L"/held", children, folder, nullptr);
    };
    std::list<CNotificationAction*> actions;
    const auto follow = [&](IQuendraHttpAPI& api) { return api.GetChanges(actions); };
    const TemporaryFolder files;
    Caller caller;
    caller.item = MakeItem(100);
    caller.local = files.Write("file", Pattern(100));
    const auto perform = [&](const Transfer& transfer) {
        return [&caller, transfer](IQuendraHttpAPI& api) { return transfer(api, caller); };
    };
    const Case cases[] = {
        {L"/held", "GET /sync/folders/held?type=all ", list, "GetResponse failed, error code: "},
        {L"/notifs", "GET /sync/notifs ", follow, "ERROR: GetResponse failed, error code: "},
        {L"/d/a.txt", "GET /sync/folders/d/a.txt?revision=7 ", perform(Download()), "SendRequestGetResponse failed, error code: "},
        {L"/d/a.txt", "POST /sync/folders/d/a.txt ", perform(Upload(0)), ""},
        {L"/d/a.txt", "POST /sync/resume/upload/d/a.txt?", perform(Chunk(0, 100)), ""},
    };
    for (const Case& held : cases)
    {
        SCOPED_TRACE(held.request);
        Gate received;
        RawServer server([&](RawConnection& connection) {
            std::string request = connection.ReadRequest();
            for (; !request.starts_with(held.request); request = connection.ReadRequest())
                connection.Send(AnswerHandshake(request));
            received.Open();
            connection.Hold();
        });
        const Library library(server);
        std::uint32_t mode = 0;
        std::uint32_t value = 0;
        ASSERT_EQ(library->Init(mode, value), 0U);
        TraceCapture trace;
        ResultCode code = 0;
        std::thread operation([&] { code = held.operation(library.Api()); });
        EXPECT_TRUE(received.Wait());
        EXPECT_EQ(library->CloseRequestHandle(held.key), 0U);
        operation.join();
        // The server may have read the request before its sender goes on to wait: the handle is gone by then.
        EXPECT_TRUE(code == 12017 || code == 6) << code;
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(held.key) + "]"));
        EXPECT_TRUE(held.message.empty() || trace.Has(EVT_ERROR, held.message + std::to_string(code))) << trace;
    }
    EXPECT_TRUE(actions.empty());
}

} // namespace
