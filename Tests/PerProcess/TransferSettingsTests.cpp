// An upload's expiry over the wire: the setting is read once in a process.

#include "LibraryOverWire.h"
#include "RegistryValues.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

namespace
{

TEST(TransferSettings, AnExpiryGoesOutAfterTheMarkersOfAChunk)
{
    RegistryValues values;
    values.Set(RegistryValues::Root::User, "UploadExpiry", 24);
    RawServer server(AnswerAll(kReply));
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    const TemporaryFolder folder;
    Caller caller;
    caller.local = folder.Write("file", Pattern(100));
    FILETIME before{};
    GetSystemTimeAsFileTime(&before);
    const TraceCapture trace;
    EXPECT_EQ(Chunk(0, 100, 1)(library.Api(), caller), 0U);

    const std::string request = server.Requests().back();
    const std::string expiry = HeaderValue(request, "qd_expiry");
    EXPECT_NE(request.find("\r\nqd_offset: 0\r\nqd_block_size: 100\r\nqd_start: true\r\nqd_finish: true\r\nqd_expiry: " + expiry + "\r\n"),
              std::string::npos)
        << request;
    const std::int64_t now = static_cast<std::int64_t>((std::uint64_t{before.dwHighDateTime} << 32) | before.dwLowDateTime);
    const std::int64_t late = CAttributeTime(expiry).GetTicks() - now - 24 * 36'000'000'000;
    EXPECT_TRUE(late >= -10'000 && late < 600'000'000) << "the text tells milliseconds: " << expiry;
    EXPECT_TRUE(trace.Has(EVT_INFO, "Sending expiry: " + expiry));
}

} // namespace
