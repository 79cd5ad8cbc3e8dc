// Events as a supporter reads them.

#include "Tracing.h"
#include "TransferSupport.h"

#include "Eventing/EventLine.h"
#include "Eventing/TraceFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>

namespace
{

using namespace Eventing;

TEST(EventLine, ShowsTheEventInColumns)
{
    constexpr std::int64_t kLeapDay = 1'709'251'199'999;
    const std::tuple<Eventing::Event, unsigned, const char*> cases[] = {
        {{&EVT_FUNCTION_ENTRY, "NativeHttp", 602, "CNativeHttp::Login", nullptr, 4711, kLeapDay},
         0,
         "2024-02-29T23:59:59.999Z    4711 ENTER NativeHttp:602       CNativeHttp::Login"},
        {{&EVT_CRITICAL, "PathUtilities", 123456, "EncodePath", "[EXCEPTION EXIT]", 12345678, kLeapDay + 1},
         2,
         "2024-03-01T00:00:00.000Z 12345678 CRIT  PathUtilities:123456     EncodePath: [EXCEPTION EXIT]"},
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

// The file's lines from the level on, where they no longer depend on time and thread.
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
}

TEST(TraceFileTest, ThreadsWriteWholeLines)
{
    const TemporaryFolder folder;
    const TraceFile file(folder / "trace.log", 2);
    const auto write = [&file] {
        for (int message = 0; message < 200; ++message)
        {
            // The sink lets only errors pass, whether or not a writer has asked.
            WriteEventFunction(file.Handle(), &EVT_FUNCTION_ENTRY, "Unit", 1, "Function");
            WriteEventFormatted(file.Handle(), &EVT_WARNING, "Unit", 1, "Function", "%0500d", 1);
            WriteEventFormatted(file.Handle(), &EVT_ERROR, "Unit", 1, "Function", "%0500d", 0);
        }
    };
    std::thread threads[] = {std::thread(write), std::thread(write), std::thread(write), std::thread(write)};
    std::string expected;
    for (auto& thread : threads)
        thread.join();
    for (int line = 0; line < 800; ++line)
        expected += "ERROR Unit:1               Function: " + std::string(500, '0') + '\n';
    EXPECT_TRUE(LinesOf(folder / "trace.log") == expected);
}

TEST(TraceFileTest, SaysWhyItCannotBeOpened)
{
    const TemporaryFolder folder;
    try
    {
        const TraceFile file(folder / "absent" / "trace.log");
        FAIL() << "opened";
    }
    catch (const std::system_error& error)
    {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory) << error.what();
    }
}

} // namespace
