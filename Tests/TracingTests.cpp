// The trace of a function: entry, messages and exit, and that tracing keeps the last error.

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
static_assert(Matches<long long, unsigned long long, long long>("%lld %I64u %08llx 100%%"));
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

constexpr int kFirstLine = __LINE__ + 4;

void TracedFunction(bool fails = false)
{
    const FunctionTraceScope trace("Traced::Function", Unit::NativeHttp);
    trace.Info("sizes: %lld of %I64u, %08x", std::int64_t{-1}, std::uint64_t{1} << 63U, 0xBEEFU);
    trace.Warning("narrow %s and %s, wide %S", "text", std::string("string"), std::wstring(L"h\u00F6st"));
    trace.Error("code: %d", 5U);
    if (fails)
        throw std::runtime_error("failed");
}

TEST(FunctionTraceScope, WritesEntryMessagesAndExitWhereTheyAreAskedFor)
{
    const auto at = [](const char* kind, int line, const char* message = "") {
        return kind + (" NativeHttp:" + std::to_string(kFirstLine + line)) + "        Traced::Function" + message;
    };
    const std::string entry = at("\nENTER", 0);
    const std::string error = at("\nERROR", 3, ": code: 5");
    const std::string messages = at("\nINFO ", 1, ": sizes: -1 of 9223372036854775808, 0000beef") +
                                 at("\nWARN ", 2, ": narrow text and string, wide h\u00F6st") + error;
    const std::string exit = at("\nEXIT ", 0);
    const std::string exceptionExit = at("\nCRIT ", 0, ": [EXCEPTION EXIT]");
    constexpr std::uint64_t kFunctions = 1;
    constexpr std::uint64_t kMessages = 0x8000000000000000;
    const std::tuple<Eventing::EventDescriptor, std::uint64_t, std::string, std::string> cases[] = {
        {EVT_INFO, Eventing::kAnyKeyword, entry + messages + exit, entry + messages + exceptionExit},
        {EVT_INFO, kMessages, entry + messages + exit, entry + messages + exceptionExit},
        // An exit by an exception is written as a message, if exits are asked for: only a listener to both gets it.
        {EVT_INFO, kFunctions, entry + exit, entry},
        {EVT_ERROR, Eventing::kAnyKeyword, error, error},
        {EVT_CRITICAL, kMessages, "", ""},
        {EVT_INFO, 0, "", ""},
        {Eventing::EventDescriptor{}, Eventing::kAnyKeyword, "", ""}};
    for (const auto& [level, keywords, whenItReturns, whenItThrows] : cases)
    {
        SCOPED_TRACE(testing::Message() << "level " << int{level.level} << ", keywords " << keywords);
        for (const bool fails : {false, true})
        {
            const TraceCapture capture(level, keywords);
            std::ostringstream text;
            if (fails)
                EXPECT_THROW(TracedFunction(true), std::runtime_error);
            else
                TracedFunction();
            text << capture;
            EXPECT_EQ(text.str(), fails ? whenItThrows : whenItReturns);
        }
    }
}

void SpoilLastError(void*, const Eventing::Event*)
{
    SetLastError(99);
}

TEST(FunctionTraceScope, KeepsTheLastError)
{
    EventProviderHandle = OpenEventSink(4, Eventing::kAnyKeyword, SpoilLastError, nullptr);
    SetLastError(12029);
    {
        const FunctionTraceScope trace("Traced::Function", Unit::NativeHttp);
        EXPECT_EQ(GetLastError(), 12029U);
        trace.Error("failed, error code: %d", GetLastError());
        EXPECT_EQ(GetLastError(), 12029U);
        EXPECT_TRUE(trace.IsEnabled(EVT_INFO));
    }
    EXPECT_EQ(GetLastError(), 12029U);
    // Throwing and catching may change the last error; the sink would have set it to 99.
    EXPECT_THROW(TracedFunction(true), std::runtime_error);
    EXPECT_NE(GetLastError(), 99U);
    CloseEventSink(std::exchange(EventProviderHandle, 0));
}

} // namespace
