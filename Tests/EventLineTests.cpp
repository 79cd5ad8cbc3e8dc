// Events as a supporter reads them.

#include "Tracing.h"

#include "Eventing/EventLine.h"
#include "Eventing/TraceFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace
{

using namespace Eventing;

TEST(EventLine, ShowsTheEventInColumns)
{
    constexpr std::int64_t kLeapDay = 1'709'251'199'999;
    const std::tuple<Event, unsigned, const char*> cases[] = {
        {{&EVT_FUNCTION_ENTRY, "NativeHttp", 602, "CNativeHttp::Login", nullptr, 4711, kLeapDay},
         0,
         "2024-02-29T23:59:59.999Z    4711 ENTER NativeHttp:602       CNativeHttp::Login"},
        {{&EVT_INFO, "NativeHttp", 7, "CNativeHttp::Login", "Request Path: /login", 4711, kLeapDay + 1},
         1,
         "2024-03-01T00:00:00.000Z    4711 INFO  NativeHttp:7           CNativeHttp::Login: Request Path: /login"},
        {{&EVT_CRITICAL, "PathUtilities", 123456, "EncodePath", "[EXCEPTION EXIT]", 12345678, 0},
         2,
         "1970-01-01T00:00:00.000Z 12345678 CRIT  PathUtilities:123456     EncodePath: [EXCEPTION EXIT]"},
    };
    for (const auto& [event, depth, line] : cases)
        EXPECT_EQ(FormatEventLine(event, depth), line);
}

TEST(EventLine, TextOfAServerNeverPassesForALine)
{
    const std::pair<std::string, std::string> cases[] = {
        {"a\r\nb\tc", "a\\r\\nb\\tc"},
        {"\x1B[2J\x7F\x01", "\\x1B[2J\\x7F\\x01"},
        {"\xC2\x85|\xC2\x9B", "\\x85|\\x9B"},
        {"\xE2\x80\xA8|\xE2\x80\xA9|\xE2\x80\xAE|\xE2\x81\xA6", "\\u2028|\\u2029|\\u202E|\\u2066"},
        {"\x9B|\xFF", "\xEF\xBF\xBD|\xEF\xBF\xBD"},
        {"C:\\new ~ \xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80", "C:\\new ~ \xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80"},
    };
    for (const auto& [message, shown] : cases)
    {
        const auto line = FormatEventLine({&EVT_INFO, "Unit", 1, "Function", message.c_str(), 1, 0}, 0);
        EXPECT_EQ(line.substr(line.find("Function")), "Function: " + shown);
    }
}

class TraceFileTest : public testing::Test
{
protected:
    TraceFileTest() { std::filesystem::create_directories(m_folder); }

    ~TraceFileTest() override
    {
        EventProviderHandle = 0;
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    // The file's lines from the level on, where they no longer depend on time and thread.
    [[nodiscard]] std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        std::ifstream file(m_path);
        for (std::string line; std::getline(file, line);)
            lines.push_back(line.substr(line.find('Z') + 10));
        return lines;
    }

    // Several test programs may run at once.
    const std::filesystem::path m_folder = std::filesystem::path(testing::TempDir()) /
                                           ("TraceFile" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    const std::filesystem::path m_path = m_folder / u8"tr\u00E4ce \u4E2D.log";
};

void Inner()
{
    const FunctionTraceScope trace("Inner", Unit::WinHttpImpl, 20);
    trace.Info("in %d", 2);
    throw std::runtime_error("inner");
}

void Outer()
{
    const FunctionTraceScope trace("Outer", Unit::NativeHttp, 10);
    EXPECT_THROW(Inner(), std::runtime_error);
    std::thread([] { const FunctionTraceScope elsewhere("Elsewhere", Unit::Interface, 30); }).join();
}

void Next()
{
    const FunctionTraceScope trace("Next", Unit::NativeHttp, 40);
    trace.Error("failed");
}

TEST_F(TraceFileTest, ShowsNestingByThreadAndIsReadableWhileItIsWritten)
{
    const TraceFile file(m_path);
    EventProviderHandle = file.Handle();
    Outer();
    Next();
    auto lines = Lines();
    for (std::string& line : lines) // a message's line is that of its call above
        line = std::regex_replace(line, std::regex(R"(^((INFO |ERROR) \w+:)\d+ +)"), "$1LINE ");
    const std::vector<std::string> expected = {
        "ENTER NativeHttp:10        Outer",     "ENTER WinHttpImpl:20         Inner",
        "INFO  WinHttpImpl:LINE Inner: in 2",   "CRIT  WinHttpImpl:20         Inner: [EXCEPTION EXIT]",
        "ENTER Interface:30         Elsewhere", "EXIT  Interface:30         Elsewhere",
        "EXIT  NativeHttp:10        Outer",     "ENTER NativeHttp:40        Next",
        "ERROR NativeHttp:LINE Next: failed",   "EXIT  NativeHttp:40        Next",
    };
    EXPECT_EQ(lines, expected);
    EXPECT_TRUE(file.IsComplete());
}

TEST_F(TraceFileTest, ThreadsWriteWholeLines)
{
    constexpr int kThreads = 4;
    constexpr int kMessages = 200;
    {
        const TraceFile file(m_path, 2);
        EventProviderHandle = file.Handle();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([] {
                const FunctionTraceScope trace("Function", Unit::NativeHttp);
                for (int message = 0; message < kMessages; ++message)
                    trace.Error("%s", std::string(500, 'x'));
            });
        for (auto& thread : threads)
            thread.join();
    }
    const auto lines = Lines();
    EXPECT_EQ(lines.size(), std::size_t{kThreads} * kMessages);
    for (const auto& line : lines)
        ASSERT_TRUE(line.starts_with("ERROR NativeHttp:") && line.ends_with(" Function: " + std::string(500, 'x'))) << line;
}

TEST_F(TraceFileTest, SaysWhyItCannotBeOpened)
{
    try
    {
        const TraceFile file(m_folder / "absent" / "trace.log");
        FAIL() << "opened";
    }
    catch (const std::system_error& error)
    {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory) << error.what();
    }
}

} // namespace
