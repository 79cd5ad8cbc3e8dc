// The eventing library: what the three operations and the sinks do, through the interface that modules and hosts use.

#include "TraceCapture.h"
#include "Tracing.h"

#include <climits>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace Eventing;

template <typename... Arguments> std::string Formatted(const char* format, Arguments... arguments)
{
    const TraceCapture trace;
    WriteEventFormatted(trace.Handle(), &EVT_INFO, "Unit", 1, "Function", format, arguments...);
    const auto messages = trace.Messages();
    return messages.size() == 1 ? messages[0] : "(no message)";
}

TEST(EventFormat, FollowsTheConversionsOnEveryPlatform)
{
    constexpr const char* kNoText = nullptr;
    constexpr const wchar_t* kNoWideText = nullptr;
    const char kUnended[3] = {'a', 'b', 'c'};
    const wchar_t kWideUnended[3] = {L'a', L'b', L'c'};
    const std::pair<std::string, std::string> cases[] = {
        {Formatted("Server: %S, Port: %d", L"h\u00F6st", 443), "Server: h\xC3\xB6st, Port: 443"},
        {Formatted("%lld %I64u %llu", LLONG_MIN, ULLONG_MAX, ULLONG_MAX), "-9223372036854775808 18446744073709551615 18446744073709551615"},
        {Formatted("%x %08x %X %#x %o", 255, 0xC0FFEEU, 255, 255, 8), "ff 00c0ffee FF 0xff 10"},
        {Formatted("%hhd %hd %hhu %I32d %i %u", 0x1FF, 0x18000, 0x1FF, -5, INT_MIN, UINT_MAX), "-1 -32768 255 -5 -2147483648 4294967295"},
        {Formatted("%ld %zu %td %jd %Iu", -7L, std::size_t{7}, std::ptrdiff_t{-7}, std::intmax_t{-8}, std::size_t{9}), "-7 7 -7 -8 9"},
        {Formatted("%5d|%-5d|%05d|%+d|% d|%.3d|%*d|%-*d|%*d", 42, 42, 42, 42, 42, 7, 4, 1, 4, 1, -4, 1),
         "   42|42   |00042|+42| 42|007|   1|1   |1   "},
        {Formatted("%.2f %e %g %10.3lf", 3.14159, 1.5, 0.0001, 2.0), "3.14 1.500000e+00 0.0001      2.000"},
        {Formatted("%c%c %3c %%", 'o', 'k', 'x'), "ok   x %"},
        {Formatted("%5s|%-5s|%.2s|%.*s|%hs", "ab", "ab", "abcdef", 3, kUnended, "n"), "   ab|ab   |ab|abc|n"},
        {Formatted("%5S|%-5S|%.2S|%.*S|%ls", L"ab", L"ab", L"abcdef", 3, kWideUnended, L"w"), "   ab|ab   |ab|abc|w"},
        {Formatted("%s %S %8s", kNoText, kNoWideText, kNoText), "(null) (null)   (null)"},
        {Formatted("%p", reinterpret_cast<void*>(std::uintptr_t{0xABCDEF})), "0x0000000000abcdef"},
        {Formatted("%S", L"\U0001F600 \U0010FFFF"), "\xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
        {Formatted("%S", std::wstring{wchar_t{0xD800}, L'x', wchar_t{0xDC00}}.c_str()), "\xEF\xBF\xBDx\xEF\xBF\xBD"},
        {Formatted(""), ""},
        {Formatted(static_cast<const char*>(nullptr)), ""},
        // It stops before arguments that it cannot know.
        {Formatted("%d %y %s", 1), "1 %y %s"},
        {Formatted("%d %n", 1), "1 %n"},
        {Formatted("100%"), "100%"},
        {Formatted("%-5"), "%-5"},
        {Formatted("%*y"), "%*y"},
        {Formatted("%99999999999d"), "%99999999999d"},
        {Formatted("%Lf"), "%Lf"},
        {Formatted("%lld%llS", 5LL), "5%llS"},
    };
    for (const auto& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}

TEST(EventFormat, HasNoLongestMessage)
{
    const std::string narrow(3'000'000, 'n');
    const std::wstring wide(1'000'000, L'\u20AC');
    const auto message = Formatted("%s%S%100000d", narrow.c_str(), wide.c_str(), 5);
    ASSERT_EQ(message.size(), narrow.size() + 3 * wide.size() + 100'000);
    EXPECT_EQ(message.substr(narrow.size() - 1, 7), "n\xE2\x82\xAC\xE2\x82\xAC");
    EXPECT_TRUE(message.ends_with(" 5"));
}

TEST(EventSinks, PassWhatTheirLevelAndKeywordsAskFor)
{
    constexpr std::uint64_t kMessages = 0x8000000000000000;
    constexpr std::uint64_t kFunctions = 1;
    const std::tuple<std::uint8_t, std::uint64_t, EventDescriptor, bool> cases[] = {
        {4, kAnyKeyword, EVT_INFO, true},          {3, kAnyKeyword, EVT_INFO, false},     {3, kAnyKeyword, EVT_WARNING, true},
        {2, kMessages, EVT_ERROR, true},           {2, kFunctions, EVT_ERROR, false},     {1, kMessages, EVT_CRITICAL, true},
        {4, kFunctions, EVT_FUNCTION_ENTRY, true}, {0, kAnyKeyword, EVT_CRITICAL, false}, {4, 0, EVT_CRITICAL, false},
    };
    for (const auto& [level, keywords, descriptor, passes] : cases)
    {
        SCOPED_TRACE(testing::Message() << "level " << int{level} << ", keywords " << keywords << ", event " << descriptor.id);
        const TraceCapture trace(level, keywords);
        EXPECT_EQ(IsEventEnabled(trace.Handle(), &descriptor) != 0, passes);
        // A writer that has not asked gets the same answer.
        WriteEventFormatted(trace.Handle(), &descriptor, "Unit", 1, "Function", "message");
        WriteEventFunction(trace.Handle(), &descriptor, "Unit", 1, "Function");
        EXPECT_EQ(trace.Events().size(), passes ? 2U : 0U) << trace;
    }
}

void CountEvent(void* context, const Event*)
{
    ++*static_cast<std::atomic<int>*>(context);
}

void WriteTo(ProviderHandle handle)
{
    WriteEventFunction(handle, &EVT_FUNCTION_ENTRY, "Unit", 1, "Function");
}

TEST(EventSinks, AreAFixedNumberAndTheirHandlesAreNeverGivenAgain)
{
    std::atomic<int> events = 0;
    std::vector<ProviderHandle> open;
    while (const auto handle = OpenEventSink(4, kAnyKeyword, CountEvent, &events))
        open.push_back(handle);
    EXPECT_EQ(open.size(), 16U);
    for (const auto handle : open)
        WriteTo(handle);
    EXPECT_EQ(events, 16);

    const auto stale = open.back();
    CloseEventSink(stale);
    open.back() = OpenEventSink(4, kAnyKeyword, CountEvent, &events);
    ASSERT_NE(open.back(), 0U);
    EXPECT_NE(open.back(), stale);
    EXPECT_EQ(IsEventEnabled(stale, &EVT_INFO), 0);
    WriteTo(stale);
    EXPECT_EQ(events, 16);

    // Closing a sink again leaves the one that took its place.
    CloseEventSink(stale);
    WriteTo(open.back());
    EXPECT_EQ(events, 17);
    for (const auto handle : open)
        CloseEventSink(handle);
}

TEST(EventSinks, NothingListensToHandlesThatNobodyGave)
{
    for (const ProviderHandle handle : {0ULL, 1ULL, 0xE51C'0000'0000'0000ULL, 0xE51C'0000'0000'00FFULL, 0xE51C'FFFF'FFFF'FFFFULL})
    {
        EXPECT_EQ(IsEventEnabled(handle, &EVT_CRITICAL), 0) << handle;
        WriteTo(handle);
        CloseEventSink(handle);
    }
    const TraceCapture trace;
    EXPECT_EQ(IsEventEnabled(trace.Handle(), nullptr), 0);
    EXPECT_EQ(OpenEventSink(4, kAnyKeyword, nullptr, nullptr), 0U);
}

// A callback that stays until its sink is being closed, and watches whether closing waits for it.
struct Lingerer
{
    ProviderHandle handle = 0;
    std::atomic<bool> hasBegun = false;
    std::atomic<bool> isClosed = false;
    std::atomic<bool> wasAwaited = false;

    static void Take(void* context, const Event*)
    {
        auto& self = *static_cast<Lingerer*>(context);
        self.hasBegun = true;
        while (IsEventEnabled(self.handle, &EVT_INFO) != 0)
            std::this_thread::yield();
        for (int turn = 0; turn < 1000; ++turn)
            std::this_thread::yield();
        self.wasAwaited = !self.isClosed;
    }
};

TEST(EventSinks, CloseWaitsForACallbackThatRuns)
{
    Lingerer lingerer;
    lingerer.handle = OpenEventSink(4, kAnyKeyword, Lingerer::Take, &lingerer);
    std::thread writer([&lingerer] { WriteTo(lingerer.handle); });
    while (!lingerer.hasBegun)
        std::this_thread::yield();
    CloseEventSink(lingerer.handle);
    lingerer.isClosed = true;
    writer.join();
    EXPECT_TRUE(lingerer.wasAwaited);
}

// A listener whose memory ends when its sink has been closed: the callback must not come after that, nor to a later listener
// from a thread that still holds the former handle.
struct Listener
{
    std::atomic<bool> isOpen = true;
    ProviderHandle handle = 0;
    std::atomic<int> events = 0;
    std::atomic<int> strays = 0;

    static void Take(void* context, const Event* event)
    {
        auto& self = *static_cast<Listener*>(context);
        ++self.events;
        if (!self.isOpen || std::to_string(self.handle) != event->message)
            ++self.strays;
    }
};

TEST(EventSinks, CloseWhileOtherThreadsWrite)
{
    std::atomic<ProviderHandle> current = 0;
    std::atomic<bool> isOver = false;
    const auto write = [&] {
        ProviderHandle former = 0;
        while (!isOver)
        {
            const ProviderHandle handle = current;
            for (const auto target : {handle, former})
                if (IsEventEnabled(target, &EVT_INFO) != 0)
                    WriteEventFormatted(target, &EVT_INFO, "Unit", 1, "Function", "%I64u", target);
            former = handle;
        }
    };
    std::thread writers[] = {std::thread(write), std::thread(write)};
    for (int round = 0; round < 50; ++round)
    {
        Listener listener;
        listener.handle = OpenEventSink(4, kAnyKeyword, Listener::Take, &listener);
        current = listener.handle;
        while (listener.events < 5)
            std::this_thread::yield();
        CloseEventSink(listener.handle);
        listener.isOpen = false;
        EXPECT_EQ(listener.strays, 0);
    }
    isOver = true;
    for (auto& writer : writers)
        writer.join();
}

} // namespace
