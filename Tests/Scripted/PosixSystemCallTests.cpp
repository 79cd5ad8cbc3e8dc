// System calls that fail: a disk in the middle of a file, and a system without random bytes.

#include "TransportFixture.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();
thread_local std::size_t t_goodBytes = kNever; // that this thread's reads deliver before they fail
thread_local bool t_randomFails = false;

} // namespace

// Both stand before the system's.
extern "C" __attribute__((visibility("default"))) ssize_t getrandom(void* buffer, size_t length, unsigned flags)
{
    return t_randomFails ? -1 : ::syscall(SYS_getrandom, buffer, length, flags); // NOLINT(cppcoreguidelines-pro-type-vararg)
}

extern "C" __attribute__((visibility("default"))) ssize_t read(int file, void* buffer, std::size_t bytes)
{
    if (t_goodBytes == 0)
    {
        errno = EIO;
        return -1;
    }
    const ssize_t count = ::syscall(SYS_read, file, buffer, std::min(bytes, t_goodBytes)); // NOLINT(cppcoreguidelines-pro-type-vararg)
    if (t_goodBytes != kNever && count > 0)
        t_goodBytes -= static_cast<std::size_t>(count);
    return count;
}

namespace
{

using SystemCalls = TransportFixture;

TEST_F(SystemCalls, AReadErrorIsToldAsItIsAlsoBehindGoodBytes)
{
    const std::wstring path = folder.Write("file", std::string(40'000, 'x'));
    for (const std::size_t good : {0U, 100U, 16'384U, 20'000U})
    {
        Restart();
        t_goodBytes = good;
        const ResultCode code = request->SendMultipartFile("file", path, L"name", nullptr, nullptr, nullptr);
        t_goodBytes = kNever;
        EXPECT_EQ(code, 31U) << good;
        EXPECT_TRUE(trace.Has(EVT_ERROR, "ReadFile failed with " + std::to_string(40'000 - good / 16'384 * 16'384) +
                                             " of 40000 bytes left, error code: 31"))
            << trace;
    }
}

TEST_F(SystemCalls, ABoundaryIsEmptyWithoutRandomBytes)
{
    t_randomFails = true;
    Restart();
    t_randomFails = false;
    EXPECT_TRUE(trace.Has(EVT_ERROR, "Failed to generate GUID."));
    EXPECT_EQ(request->GetEndMultipartLength(), 6U);
    EXPECT_EQ(request->EndMultipart(), Result::Success);
    EXPECT_EQ(request->SendPostData(), Result::Success);
    EXPECT_EQ(g_script.body, "----\r\n");
}

} // namespace
