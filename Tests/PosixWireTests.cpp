// Ending an operation that is blocked in the network. Wine's WinHTTP does not end a blocked receive when its handle is closed, so this
// is shown on Linux.

#include "Attributes.h"
#include "LibraryOverWire.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>

#include <thread>

namespace
{

TEST(Wire, ClosingTheRequestEndsAReceiveThatTheServerHoldsOpen)
{
    Gate received;
    RawServer server([&](RawConnection& connection) {
        connection.ReadRequest();
        received.Open();
        connection.Hold();
    });
    const Library library(server);
    TraceCapture trace;
    ResultCode code = 0;
    std::thread listing([&] {
        ServerItemList children;
        std::shared_ptr<IServerAttributes> folder;
        code = library->GetPathListing(L"/held", children, folder, nullptr);
    });
    ASSERT_TRUE(received.Wait());
    EXPECT_EQ(library->CloseRequestHandle(L"/held"), 0U);
    listing.join();
    EXPECT_EQ(code, 12017U);
    EXPECT_TRUE(trace.Has(EVT_INFO, "Closed Request Handle for [/held]"));
}

} // namespace
