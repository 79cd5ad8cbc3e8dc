// A boundary where the system has no random bytes to give: empty, and used as it is.

#include "ScriptedWinHttp.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "Transport/WinHttpImplRequest.h"

#include <gtest/gtest.h>

#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
bool randomFails = false;
} // namespace

/// Stands before the system's.
extern "C" __attribute__((visibility("default"))) ssize_t getrandom(void* buffer, size_t length, unsigned flags)
{
    return randomFails ? -1 : ::syscall(SYS_getrandom, buffer, length, flags);
}

TEST(Boundary, IsEmptyWithoutRandomBytes)
{
    g_script = {};
    TraceCapture trace;
    randomFails = true;
    WinHttpRequest request(std::make_shared<WinHttpSession>());
    randomFails = false;
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Failed to generate GUID."));
    EXPECT_EQ(request.GetEndMultipartLength(), 6U);
    EXPECT_EQ(request.EndMultipart(), 0U);
    EXPECT_EQ(request.SendPostData(), 0U);
    EXPECT_EQ(g_script.body, "----\r\n");
}
