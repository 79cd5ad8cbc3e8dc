// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "Attributes.h"
#include "LibraryOverWire.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"

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
        const char* message;
    };
    std::list<CNotificationAction*> actions;
    const Case cases[] =
        {
            {L"/held", "GET /sync/folders/held?type=all ",
             [](IQuendraHttpAPI& api) {
        ServerItemList children;
        std::shared_ptr<IServerAttributes> folder;
        return api.GetPathListing(L"/held", children, folder, nullptr);
             },
             "GetResponse failed, error code: 12017"},
            {L"/notifs", "GET /sync/notifs ", [&](IQuendraHttpAPI& api) { return api.GetChanges(actions); },
             "ERROR: GetResponse failed, error code: 12017"},
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
        EXPECT_EQ(code, 12017U);
        EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [" + ToNarrow(held.key) + "]"));
        EXPECT_TRUE(trace.Has(EVT_ERROR, held.message)) << trace;
    }
    EXPECT_TRUE(actions.empty());
}

} // namespace
