// The trace of a function: its entry, its messages, its exit, and that none of them changes what the function does.

#include "TraceCapture.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

namespace
{

// A format is checked against its arguments when it is compiled.
using TraceDetail::Matches;
static_assert(Matches<>("no conversion, 100%%"));
static_assert(Matches<unsigned, std::string, std::wstring>("%d %s %S"));
static_assert(Matches<long long, unsigned long long, long long>("%lld %I64u %08llx"));
static_assert(Matches<char[3], const wchar_t*, bool>("%s %-10S %d"));
static_assert(!Matches<>("%d"));
static_assert(!Matches<int>("none"));
static_assert(!Matches<long long>("%d"));
static_assert(!Matches<std::wstring>("%s"));
static_assert(!Matches<std::string>("%S"));
static_assert(!Matches<double>("%d"));
static_assert(!Matches<std::string>("%"));
static_assert(!Matches<std::string_view>("%s"));

// Name, unit, line and the pointer to the provider's handle.
static_assert(sizeof(FunctionTraceScope) == 4 * sizeof(void*));

void TracedFunction(bool fails)
{
    const FunctionTraceScope trace("Traced::Function", Unit::NativeHttp, 602);
    trace.Info("Server: %S, Port: %d", std::wstring(L"h\u00F6st"), 443U);
    if (fails)
        throw std::runtime_error("failed");
}

void TracedFunctionThatFails()
{
    EXPECT_THROW(TracedFunction(true), std::runtime_error);
}

TEST(FunctionTraceScope, WritesEntryMessagesAndExit)
{
    TraceCapture capture;
    const auto lineAt = [base = __LINE__ + 2](int offset) { return "WinHttpImpl:" + std::to_string(base + offset) + " Traced::Function"; };
    {
        const FunctionTraceScope trace("Traced::Function", Unit::WinHttpImpl);
        trace.Info("sizes: %lld of %I64u, %08x", std::int64_t{-1}, std::uint64_t{1} << 63U, 0xBEEFU);
        trace.Warning("narrow %s and %s", "text", std::string("string"));
        trace.Error("code: %d", 5U);
    }
    std::ostringstream text;
    text << capture;
    EXPECT_EQ(text.str(), "Traced:\n  ENTER " + lineAt(0) + "\n  INFO " + lineAt(1) +
                              ": sizes: -1 of 9223372036854775808, 0000beef\n  WARN " + lineAt(2) + ": narrow text and string\n  ERROR " +
                              lineAt(3) + ": code: 5\n  EXIT " + lineAt(0) + "\n");
}

TEST(FunctionTraceScope, WritesAnExitByExceptionAsCriticalOnlyWhereExitsAreAskedFor)
{
    constexpr std::uint64_t kFunctions = 1;
    constexpr std::uint64_t kMessages = 0x8000000000000000;
    // With the functions' own keyword alone the exit is asked for, yet the sink has no ear for the critical message.
    const std::tuple<std::uint8_t, std::uint64_t, std::size_t> cases[] = {
        {4, Eventing::kAnyKeyword, 1}, {4, kMessages, 1}, {3, Eventing::kAnyKeyword, 0}, {1, kMessages, 0}, {4, kFunctions, 0}};
    for (const auto& [level, keywords, critical] : cases)
    {
        SCOPED_TRACE(testing::Message() << "level " << int{level} << ", keywords " << keywords);
        const TraceCapture capture(level, keywords);
        TracedFunctionThatFails();
        EXPECT_EQ(capture.CountOf(EVT_CRITICAL, "[EXCEPTION EXIT]"), critical) << capture;
        for (const auto& event : capture.EventsOf("Traced::Function"))
        {
            EXPECT_FALSE(event.isExit) << capture;
            EXPECT_EQ(event.level == 1, event.message == "[EXCEPTION EXIT]");
            EXPECT_EQ(event.line == 602, event.level == 1 || event.isEntry);
        }
    }
}

TEST(FunctionTraceScope, IsSilentWithoutAListener)
{
    ASSERT_EQ(EventProviderHandle, 0U);
    TracedFunction(false);
    TracedFunctionThatFails();
    EXPECT_FALSE(FunctionTraceScope("Traced::Function", Unit::NativeHttp).IsEnabled(EVT_CRITICAL));

    std::uint64_t former = 0;
    {
        const TraceCapture capture;
        former = capture.Handle();
    }
    const TraceCapture other;
    EventProviderHandle = former;
    TracedFunction(false);
    EXPECT_TRUE(other.Events().empty()) << other;
}

void SpoilLastError(void*, const Eventing::Event*)
{
    SetLastError(99);
}

TEST(FunctionTraceScope, KeepsTheLastError)
{
    const auto sink = OpenEventSink(4, Eventing::kAnyKeyword, SpoilLastError, nullptr);
    EventProviderHandle = sink;
    SetLastError(12029);
    {
        const FunctionTraceScope trace("Traced::Function", Unit::NativeHttp);
        EXPECT_EQ(GetLastError(), 12029U);
        trace.Error("failed, error code: %d", GetLastError());
        EXPECT_EQ(GetLastError(), 12029U);
        EXPECT_TRUE(trace.IsEnabled(EVT_INFO));
    }
    EXPECT_EQ(GetLastError(), 12029U);
    // Throwing and catching may touch the last error by itself; the exit by exception is told apart by the value of the sink.
    TracedFunctionThatFails();
    EXPECT_NE(GetLastError(), 99U);
    EventProviderHandle = 0;
    CloseEventSink(sink);
}

} // namespace
