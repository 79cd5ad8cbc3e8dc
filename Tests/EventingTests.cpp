// The eventing library: formats, lines, trace files and sinks.

#include "CaseFile.h"
#include "JsonText.h"
#include "TraceCapture.h"
#include "TransferSupport.h"

#include "Eventing/Timeline.h"
#include "Eventing/TraceFile.h"

#include <climits>

#include <atomic>
#include <locale>
#include <map>
#include <system_error>
#include <thread>

namespace
{

using namespace Eventing;

template <typename... Arguments> std::string Formatted(const char* format, Arguments... arguments)
{
    const TraceCapture trace;
    WriteEventFormatted(EventProviderHandle, &EVT_INFO, "Unit", 1, "Function", format, arguments...);
    const auto messages = trace.Messages();
    return messages.size() == 1 ? messages[0] : "(no message)";
}

TEST(EventFormat, FollowsTheConversionsOnEveryPlatform)
{
    constexpr const char* kNoText = nullptr;
    constexpr const wchar_t* kNoWideText = nullptr;
    const std::string kLong(1'000'000, 'n');
    const std::pair<std::string, std::string> cases[] = {
        {Formatted("Server: %S, Port: %d", L"h\u00F6st", 443), "Server: h\xC3\xB6st, Port: 443"},
        {Formatted("%lld %I64u %llu", LLONG_MIN, ULLONG_MAX, ULLONG_MAX), "-9223372036854775808 18446744073709551615 18446744073709551615"},
        {Formatted("%x %08x %llx %u", 255, 0xC0FFEEU, ULLONG_MAX, UINT_MAX), "ff 00c0ffee ffffffffffffffff 4294967295"},
        {Formatted("%5d|%-5d|%05d|%.3d|%-8I64d|%%", 42, 42, INT_MIN, 7, -5LL), "   42|42   |-2147483648|007|-5      |%"},
        {Formatted("%5s|%-5s|%.2s", "ab", "ab", "abcdef"), "   ab|ab   |ab"},
        {Formatted("%5S|%-5S|%.2S", L"ab", L"ab", L"abcdef"), "   ab|ab   |ab"},
        {Formatted("%s %S %8s", kNoText, kNoWideText, kNoText), "(null) (null)   (null)"},
        {Formatted("%S", L"\U0001F600 \U0010FFFF"), "\xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"},
        {Formatted("%S", std::wstring{wchar_t{0xD800}, L'x', wchar_t{0xDC00}}.c_str()), "\xEF\xBF\xBDx\xEF\xBF\xBD"},
        {Formatted("%s%S%100000d%64d", kLong.c_str(), std::wstring(1'000'000, L'n').c_str(), 5, 6),
         kLong + kLong + std::string(99'999, ' ') + "5" + std::string(63, ' ') + "6"},
        {Formatted(""), ""},
        {Formatted(static_cast<const char*>(nullptr)), ""},
        // An unknown conversion ends the formatting: the arguments behind it cannot be found.
        {Formatted("%d %y %s", 1), "1 %y %s"},
        {Formatted("%d %n", 1), "1 %n"},
        {Formatted("100%"), "100%"},
        {Formatted("%-5"), "%-5"},
        {Formatted("%*d", 5, 1), "%*d"},
        {Formatted("%lld%llS", 5LL), "5%llS"},
    };
    for (const auto& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}

TEST(EventLine, ShowsTheEventInColumnsAndTheTextOfAServerForNoMoreThanItIs)
{
    constexpr std::int64_t kLeapDay = 1'709'251'199'999;
    EXPECT_EQ(FormatEventLine({&EVT_FUNCTION_ENTRY, "NativeHttp", 602, "CNativeHttp::Login", nullptr, 4711, kLeapDay}, 0),
              "2024-02-29T23:59:59.999Z    4711 ENTER NativeHttp:602       CNativeHttp::Login");
    const std::pair<std::string, std::string> cases[] = {
        {"[EXCEPTION EXIT]", "[EXCEPTION EXIT]"},
        {"a\r\nb\tc", "a\\r\\nb\\tc"},
        {"\x1B[2J\x7F\x01", "\\x1B[2J\\x7F\\x01"},
        {"\xC2\x85|\xC2\x9B", "\\x85|\\x9B"},
        {"\xE2\x80\xA8|\xE2\x80\xA9|\xE2\x80\xAE|\xE2\x81\xA6", "\\u2028|\\u2029|\\u202E|\\u2066"},
        {"\x9B|\xFF", "\xEF\xBF\xBD|\xEF\xBF\xBD"},
        {"C:\\new ~ \xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80", "C:\\new ~ \xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80"},
    };
    for (const auto& [message, shown] : cases)
        EXPECT_EQ(FormatEventLine({&EVT_CRITICAL, "PathUtilities", 123456, "EncodePath", message.c_str(), 12345678, kLeapDay + 1}, 2),
                  "2024-03-01T00:00:00.000Z 12345678 CRIT  PathUtilities:123456     EncodePath: " + shown);
}

// The file's lines without time and thread.
std::string LinesOf(const std::filesystem::path& path)
{
    std::string lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines += line.substr(line.find('Z') + 10) + '\n';
    return lines;
}

TEST(TraceFileTest, ShowsNestingByThreadAndIsReadableWhileItIsWritten)
{
    const TemporaryFolder folder;
    const auto path = folder / "" / std::filesystem::path(u8"tr\u00E4ce \u4E2D.log");
    const TraceFile file(path);
    const auto write = [&file](const EventDescriptor& descriptor, const char* function, const char* message = nullptr) {
        if (message != nullptr)
            WriteEventFormatted(file.Handle(), &descriptor, "Unit", 1, function, message);
        else
            WriteEventFunction(file.Handle(), &descriptor, "Unit", 1, function);
    };
    write(EVT_FUNCTION_ENTRY, "Outer");
    write(EVT_FUNCTION_ENTRY, "Inner");
    write(EVT_INFO, "Inner", "message");
    write(EVT_CRITICAL, "Inner", "[EXCEPTION EXIT]");
    std::thread([&] { write(EVT_FUNCTION_ENTRY, "Elsewhere"); }).join();
    write(EVT_FUNCTION_EXIT, "Outer");
    write(EVT_FUNCTION_ENTRY, "Next");
    EXPECT_EQ(LinesOf(path), R"(ENTER Unit:1               Outer
ENTER Unit:1                 Inner
INFO  Unit:1                   Inner: message
CRIT  Unit:1                 Inner: [EXCEPTION EXIT]
ENTER Unit:1               Elsewhere
EXIT  Unit:1               Outer
ENTER Unit:1               Next
)");
    EXPECT_TRUE(file.IsComplete());

    EXPECT_THROW(TraceFile(folder / "absent" / "trace.log"), std::system_error);
}

TEST(TraceFileTest, ThreadsWriteWholeLines)
{
    const TemporaryFolder folder;
    const TraceFile file(folder / "trace.log", 2);
    std::string expected;
    std::vector<std::thread> threads(4);
    for (auto& thread : threads)
        thread = std::thread([&file] {
            for (int message = 0; message < 200; ++message)
            {
                // The sink drops what is above its level, also from a writer that did not ask first.
                WriteEventFunction(file.Handle(), &EVT_FUNCTION_ENTRY, "Unit", 1, "Function");
                WriteEventFormatted(file.Handle(), &EVT_WARNING, "Unit", 1, "Function", "%0500d", 1);
                WriteEventFormatted(file.Handle(), &EVT_ERROR, "Unit", 1, "Function", "%0500d", 0);
            }
        });
    for (auto& thread : threads)
        thread.join();
    for (int line = 0; line < 800; ++line)
        expected += "ERROR Unit:1               Function: " + std::string(500, '0') + '\n';
    EXPECT_TRUE(LinesOf(folder / "trace.log") == expected);
}

// A thread's records in a timeline, each as its phase and the name of the mark or the bar.
std::string RecordsOf(unsigned thread, const std::string& timeline)
{
    std::vector<std::string> bars;
    std::string told;
    const auto root = ParseJsonObject(R"({"records":)" + timeline + "]}").value_or(Json::Value());
    for (const Json::Value& record : root["records"])
    {
        if (record["tid"].asUInt() != thread || record["ph"] == "M")
            continue;
        const bool isEnd = record["ph"] == "E";
        const std::string name = isEnd && !bars.empty() ? bars.back() : record["name"].asString();
        told += (told.empty() ? "" : ", ") + record["ph"].asString() + " " + name;
        if (isEnd && !bars.empty())
            bars.pop_back();
        if (record["ph"] == "B")
            bars.push_back(name);
    }
    return told;
}

// A program's locale may have such numbers, which JSON has not.
struct Grouped : std::numpunct<char>
{
    [[nodiscard]] char do_thousands_sep() const override { return ','; }
    [[nodiscard]] std::string do_grouping() const override { return "\1"; }
};

TEST(TimelineTest, ShowsEventsAsTimelineJsonSays)
{
    const auto previous = std::locale::global(std::locale(std::locale::classic(), new Grouped));
    const TemporaryFolder folder;
    const auto path = folder / "" / std::filesystem::path(u8"time\u00E4 \u4E2D.json");
    const std::u8string name = path.u8string();
    Timeline* const timeline = OpenTimeline(std::string(name.begin(), name.end()).c_str());
    ASSERT_NE(timeline, nullptr);
    const auto contents = [&path] {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::map<std::string, EventDescriptor> kinds = {
        {"enter", EVT_FUNCTION_ENTRY}, {"exit", EVT_FUNCTION_EXIT}, {"info", EVT_INFO}, {"critical", EVT_CRITICAL}};
    const auto add = [&](unsigned thread, const EventDescriptor& kind, const char* function, const char* message) {
        const std::string before = RecordsOf(thread, contents());
        const Eventing::Event event{&kind, "Unit", 7, function, message, thread, 0};
        AddToTimeline(timeline, &event);
        const std::string added = RecordsOf(thread, contents()).substr(before.size());
        return added.starts_with(", ") ? added.substr(2) : added;
    };
    const auto show = [&](const Json::Value& given) {
        return add(given[0].asUInt(), kinds.at(given[1].asString()), given[2].asCString(),
                   given[3].isNull() ? nullptr : given[3].asCString());
    };
    Json::Value groups;
    groups["events"] = ReadCaseFile("Timeline.json");
    ExpectCases(groups, {{"events", show}});
    EXPECT_EQ(add(1, EVT_INFO, "F", "a\xFFz"), "i a\xEF\xBF\xBDz");
    const std::string crashed = contents();
    EXPECT_EQ(CloseTimeline(timeline), 1);
    EXPECT_EQ(contents(), crashed + "\n]\n");
    EXPECT_EQ(OpenTimeline((folder / "absent" / "time.json").string().c_str()), nullptr);
    EXPECT_EQ(CloseTimeline(nullptr), 1);
    std::locale::global(previous);
}

void CountEvent(void* context, const Eventing::Event*)
{
    ++*static_cast<int*>(context);
}

void WriteTo(ProviderHandle handle)
{
    WriteEventFunction(handle, &EVT_FUNCTION_ENTRY, "Unit", 1, "Function");
}

TEST(EventSinks, AreAFixedNumberAndTheirHandlesAreNeverGivenAgain)
{
    int events = 0;
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
    // A closed or made-up handle reaches no sink, and closing it does not close the sink that was opened in its place.
    for (const auto handle : std::vector<ProviderHandle>{stale, 0, 1, 0xE51C'0000'0000'0000, 0xE51C'0000'0000'00FF, 0xE51C'FFFF'FFFF'FFFF})
    {
        EXPECT_EQ(IsEventEnabled(handle, &EVT_CRITICAL), 0) << handle;
        WriteTo(handle);
        CloseEventSink(handle);
    }
    EXPECT_EQ(events, 16);
    WriteTo(open.back());
    EXPECT_EQ(events, 17);
    EXPECT_EQ(IsEventEnabled(open.back(), nullptr), 0);
    for (const auto handle : open)
        CloseEventSink(handle);
    EXPECT_EQ(OpenEventSink(4, kAnyKeyword, nullptr, nullptr), 0U);
}

// Its callback runs until the sink is being closed, opens and closes another sink, and runs a little longer.
struct Listener
{
    ProviderHandle handle = 0;
    Gate entered;
    std::atomic<int> begun = 0;
    std::atomic<int> ended = 0;

    static void Take(void* context, const Eventing::Event*)
    {
        auto& self = *static_cast<Listener*>(context);
        ++self.begun;
        self.entered.Open();
        while (IsEventEnabled(self.handle, &EVT_INFO) != 0)
            std::this_thread::yield();
        CloseEventSink(OpenEventSink(4, kAnyKeyword, Take, context));
        for (int turn = 0; turn < 100; ++turn)
            std::this_thread::yield();
        ++self.ended;
    }
};

TEST(EventSinks, CloseWaitsForCallbacksAndLetsNoMoreCome)
{
    for (int round = 0; round < 50; ++round)
    {
        Listener listener;
        listener.handle = OpenEventSink(4, kAnyKeyword, Listener::Take, &listener);
        std::thread writers[] = {std::thread(WriteTo, listener.handle), std::thread(WriteTo, listener.handle)};
        EXPECT_TRUE(listener.entered.Wait());
        CloseEventSink(listener.handle);
        const int begun = listener.begun;
        EXPECT_EQ(listener.ended, begun);
        for (auto& writer : writers)
            writer.join();
        EXPECT_EQ(listener.begun, begun);
    }
}

} // namespace
