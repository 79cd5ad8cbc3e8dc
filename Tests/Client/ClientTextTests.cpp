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

// How each group of Client.json is read: all but the last member of a case are what is given, the last is what comes of it.
const ShownCases kShown = {{"arguments", [](const Json::Value& row) { return ShowArguments(row[0], row[1]); }},
                           {"servers", [](const Json::Value& row) { return ShowServer(row[0], row[1]); }},
                           {"servers of this machine",
                            [](const Json::Value& row) {
    return BoolText(MakeAddress(ParseServer(row[0].asString()), {}).IsThisMachine());
                            }},
                           {"times",
                            [](const Json::Value& row) {
    const auto time = ParseTime(row[0].asString());
    return time ? ToNarrow(time->ToString()) : "none";
                            }},
                 {"local times",
                  [](const Json::Value& row) { return TimeForPeople(ParseTime(row[0].asString()).value_or(CAttributeTime())); }},
                 {"printable texts", [](const Json::Value& row) { return Printable(row[0].asString()); }},
                 {"widths, and texts cut to four columns",
                  [](const Json::Value& row) {
    const std::string text = row[0].asString();
    return std::to_string(DisplayWidth(text)) + " " + FitTo(text, 4) + FitTo(text, 0);
                  }},
    {"sizes", [](const Json::Value& row) { return BinarySize(row[0].asUInt64()); }},
    {"meanings of codes", [](const Json::Value& row) { return Result::MeaningOf(row[0].asUInt()); }},
    {"durations", [](const Json::Value& row) { return DurationText(row[0].asUInt64()); }},
    {"words of a shell", [](const Json::Value& row) { return System::ShellWord(row[0].asString()); }},
    {"file names", [](const Json::Value& row) { return BoolText(System::IsFileName(ToWide(row[0].asString()))); }},
    {"progress", [](const Json::Value& row) { return RenderProgress(ProgressOf(row[0]), row[1].asUInt()); }},
    {"failures", [](const Json::Value& row) {
         return FailureMeaning(row[0].asUInt(), {row[1][0].asUInt(), row[1][1].asString(), row[1][2].asString(), ""}, row[2].asString());
     }}};

TEST(ClientTexts, AreReadAndShownAsClientJsonSays)
{
    ExpectCases(ReadCaseFile("Client.json"), kShown);
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

TEST(ResultMeanings, SaysWhatACodeMeans)
{
    for (ResultCode code = 0; code < 30000; ++code)
        EXPECT_EQ(Result::MeaningOf(code).find_first_of("()\n"), std::string::npos) << code;
    for (const ResultCode code : {19006U, 12007U, 12029U, 0x80072EE7U})
        EXPECT_TRUE(FailureMeaning(code, {}).ends_with("; 'quendra doctor' tells why")) << code;
    EXPECT_NE(FailureMeaning(19006, {502, "", ""}).find("; the server answered with HTTP 502, a gateway cannot reach the server;"),
              std::string::npos);
    EXPECT_EQ(CodeText(12029), "12029");
    EXPECT_EQ(CodeText(0x80070057), "0x80070057");
}

// What the library's events tell of the last operation, and of no other.
TEST(ServerAnswer, IsThatOfTheLastOperation)
{
    AnswerReader reader;
    const auto write = [&reader](std::uint16_t id, const char* function, const char* message) {
        const Eventing::EventDescriptor descriptor{id, 0, 16, 4, 0, 2, 0};
        const Eventing::Event event{&descriptor, "NativeHttp", 1, function, message, 1, 0};
        reader.Take(event);
    };
    const auto ask = [&write](const Texts& reply, const Texts& messages) {
        write(110, "CNativeHttp::DeletePath", nullptr);
        write(110, "WinHttpRequest::Initialise", nullptr);
        write(111, "WinHttpRequest::Initialise", nullptr);
        for (const auto& message : messages)
            write(101, "WinHttpRequest::ReceiveResponse", message.c_str());
        write(110, "CNativeHttp::LogResponse", nullptr);
        write(101, "CNativeHttp::LogResponse", "HTTP Response (60 bytes):");
        for (const auto& line : reply)
            write(101, "CNativeHttp::LogResponse", line.c_str());
        write(111, "CNativeHttp::LogResponse", nullptr);
        write(111, "CNativeHttp::DeletePath", nullptr);
    };
    const auto told = [&reader] {
        const ServerAnswer answer = reader.Answer();
        return std::to_string(answer.status) + "|" + answer.message + "|" + answer.redirect;
    };
    ask({"{", "\"errorId\" : \"5\",", "\"message\" : \"no such\\u001b item\"", "}"}, {"The server answered with HTTP 404"});
    write(110, "PathUtilities::NormalizePath", nullptr);
    write(111, "PathUtilities::NormalizePath", nullptr);
    EXPECT_EQ(told(), "404|no such\\x1B item|");
    ask({}, {"The server answered with HTTP 301", "The server redirects to https://b.example:8443. Redirects are not followed."});
    EXPECT_EQ(told(), "301||https://b.example:8443");
    write(110, "CNativeHttp::DeletePath", nullptr);
    write(104, "CNativeHttp::DeletePath", "[EXCEPTION EXIT]");
    ask({"{\"error\":{\"message\":3}}"}, {"The server answered with HTTP 502"});
    EXPECT_EQ(told(), "502||");
    ask({"[1"}, {});
    EXPECT_EQ(told(), "0||");
    write(110, "CNativeHttp::DownloadFile", nullptr);
    write(101, "WinHttpRequest::GetResponse", "The server answered with HTTP 200");
    write(110, "WinHttpRequest::Initialise", nullptr);
    EXPECT_EQ(told(), "0||") << "the second of an operation's requests is not answered";
}

} // namespace
