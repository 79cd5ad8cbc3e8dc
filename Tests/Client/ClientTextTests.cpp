// What the program reads and shows, part by part: Client.json holds most of the cases.

#include "CaseFile.h"
#include "Client/CommandLine.h"
#include "Client/FailureText.h"
#include "Client/Failures.h"
#include "Client/Progress.h"
#include "Client/ServerAddress.h"
#include "Client/ServerAnswer.h"
#include "Client/System.h"
#include "Client/TerminalText.h"
#include "Client/TimeText.h"
#include "TextConversion.h"

#include "QuendraHttp/ResultMeanings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace
{

using Texts = std::vector<std::string>;

std::string BoolText(bool value)
{
    return value ? "true" : "false";
}

// The path of a command that has one, else the options that name the server.
std::string ShowArguments(const Json::Value& arguments, const Json::Value& environment)
{
    Texts texts;
    for (const Json::Value& argument : arguments)
        texts.push_back(argument.asString());
    const auto [options, command] = ParseCommandLine(texts, [&](const std::string& name) {
        return environment.isMember(name) ? std::optional(environment[name].asString()) : std::nullopt;
    });
    if (const auto* stat = std::get_if<Command::Stat>(&command))
        return ToNarrow(stat->path);
    if (const auto* put = std::get_if<Command::Put>(&command))
        return ToNarrow(put->path);
    return (options.server ? options.server->host : "-") + " " + (options.port ? std::to_string(*options.port) : "-") + " " +
           options.token.value_or("-");
}

std::string ShowServer(const Json::Value& text, const Json::Value& port)
{
    const ServerAddress address = MakeAddress(ParseServer(text.asString()), port.isNull() ? std::nullopt : std::optional(port.asInt()));
    return address.Url() + " " + std::to_string(address.port) + ", " + address.Text();
}

ProgressState ProgressOf(const Json::Value& row)
{
    return {row[0].asString(), row[1].asUInt64(), row[2].isNull() ? std::nullopt : std::optional(row[2].asUInt64()), row[3].asDouble()};
}

// What the library's events tell of the last operation: status|message|redirect. A step is an operation, with messages and the lines of its
// reply, or an event: "> " enters a function, "< " leaves it, anything else is its end by an exception.
std::string ShowAnswer(const Json::Value& steps)
{
    AnswerReader reader;
    const auto write = [&reader](std::uint16_t id, const std::string& function, const char* message = nullptr) {
        const Eventing::EventDescriptor descriptor{id, 0, 16, 4, 0, 2, 0};
        reader.Take({&descriptor, "NativeHttp", 1, function.c_str(), message, 1, 0});
    };
    for (const Json::Value& step : steps)
    {
        if (step.isString())
        {
            const std::string text = step.asString();
            const auto id = text.starts_with('>') ? 110 : text.starts_with('<') ? 111 : 104;
            write(static_cast<std::uint16_t>(id), text.substr(2), id == 104 ? "[EXCEPTION EXIT]" : nullptr);
            continue;
        }
        write(110, "CNativeHttp::DeletePath");
        write(110, "WinHttpRequest::Initialise");
        write(111, "WinHttpRequest::Initialise");
        for (const Json::Value& message : step[0])
            write(101, "WinHttpRequest::ReceiveResponse", message.asCString());
        write(110, "CNativeHttp::LogResponse");
        write(101, "CNativeHttp::LogResponse", "HTTP Response (60 bytes):");
        for (const Json::Value& line : step[1])
            write(101, "CNativeHttp::LogResponse", line.asCString());
        write(111, "CNativeHttp::LogResponse");
        write(111, "CNativeHttp::DeletePath");
    }
    const ServerAnswer answer = reader.Answer();
    return std::to_string(answer.status) + "|" + answer.message + "|" + answer.redirect;
}

// All but the last member of a case are what is given, the last is what comes of it.
TEST(ClientTexts, AreReadAndShownAsClientJsonSays)
{
    using Row = const Json::Value&;
    ShownCases shown;
    shown["arguments"] = [](Row row) { return ShowArguments(row[0], row[1]); };
    shown["servers"] = [](Row row) { return ShowServer(row[0], row[1]); };
    shown["servers of this machine"] = [](Row row) { return BoolText(MakeAddress(ParseServer(row[0].asString()), {}).IsThisMachine()); };
    shown["times"] = [](Row row) {
        const auto time = ParseTime(row[0].asString());
        return time ? ToNarrow(time->ToString()) : "none";
    };
    shown["local times"] = [](Row row) { return TimeForPeople(ParseTime(row[0].asString()).value_or(CAttributeTime())); };
    shown["printable texts"] = [](Row row) { return Printable(row[0].asString()); };
    shown["widths, and texts cut to four columns"] = [](Row row) {
        const std::string text = row[0].asString();
        return std::to_string(DisplayWidth(text)) + " " + FitTo(text, 4) + FitTo(text, 0);
    };
    shown["sizes"] = [](Row row) { return BinarySize(row[0].asUInt64()); };
    shown["meanings of codes"] = [](Row row) { return CodeText(row[0].asUInt()) + ": " + Result::MeaningOf(row[0].asUInt()); };
    shown["durations"] = [](Row row) { return DurationText(row[0].asUInt64()); };
    shown["words of a shell"] = [](Row row) { return System::ShellWord(row[0].asString()); };
    shown["file names"] = [](Row row) { return BoolText(System::IsFileName(ToWide(row[0].asString()))); };
    shown["progress"] = [](Row row) { return RenderProgress(ProgressOf(row[0]), row[1].asUInt()); };
    shown["failures"] = [](Row row) {
        return FailureMeaning(row[0].asUInt(), {row[1][0].asUInt(), row[1][1].asString(), row[1][2].asString(), ""}, row[2].asString());
    };
    shown["answers"] = [](Row row) { return ShowAnswer(row[0]); };
    ExpectCases(ReadCaseFile("Client.json"), shown);
}

TEST(CommandLine, TakesValidUtf8Only)
{
    EXPECT_THROW(static_cast<void>(ParseCommandLine({"put", "caf\xE9", "/home/"}, [](const std::string&) { return std::nullopt; })),
                 UsageError);
    EXPECT_EQ(Printable("\xFF"), "\uFFFD");
}

TEST(TimeText, KnowsNowAndTimesThatNoCalendarHas)
{
    EXPECT_GT(ParseTime("now")->GetTicks(), ParseTime("2020-01-01")->GetTicks());
    EXPECT_FALSE(TimeForPeople(CAttributeTime(CAttributeTime::kUnset - 1)).empty());
}

TEST(Text, AlignsTheColumnsOfATable)
{
    Table table({{"Size", Table::Align::Right}, {"Name"}, {"Note"}});
    table.Add({"1 B", "\u65E5\u672C", "x"});
    table.Add({"1.5 KiB", "a", ""});
    EXPECT_EQ(table.Render(), "   Size  Name  Note\n    1 B  \u65E5\u672C  x\n1.5 KiB  a\n");
}

TEST(Progress, FitsEveryWidth)
{
    const Json::Value groups = ReadCaseFile("Client.json");
    for (const Json::Value& row : groups["progress"])
        for (std::size_t columns = 0; columns <= 130; ++columns)
            EXPECT_LE(DisplayWidth(RenderProgress(ProgressOf(row[0]), columns)), columns) << row << " in " << columns;
}

TEST(Progress, MeasuresTheLastSeconds)
{
    using std::chrono::seconds;
    const RateMeter::Clock::time_point start{};
    RateMeter rate;
    EXPECT_EQ(rate.BytesPerSecond(), 0);
    for (int second = 0; second <= 20; ++second)
        rate.Add(start + seconds(second), static_cast<std::uint64_t>(second <= 10 ? second * 1000 : 10'000 + (second - 10) * 10));
    EXPECT_NEAR(rate.BytesPerSecond(), 10, 0.01);
}

TEST(ResultMeanings, TakeOneLine)
{
    for (ResultCode code = 0; code < 30000; ++code)
        EXPECT_EQ(Result::MeaningOf(code).find_first_of("()\n"), std::string::npos) << code;
}

} // namespace
