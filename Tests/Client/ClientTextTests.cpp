// What the program reads and shows, part by part: arguments, addresses, identifiers, times, text, progress, result codes.

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
#include <string>
#include <vector>

namespace
{

using Texts = std::vector<std::string>;

constexpr bool kIsWindows = std::filesystem::path::preferred_separator == '\\';

// What becomes of each text.
template <typename Function> void ExpectEach(const Function& function, const std::vector<std::pair<std::string, std::string>>& cases)
{
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(function(text), expected) << text;
}

CommandLine Parse(const Texts& arguments, const std::string& variable = {}, const std::string& value = {})
{
    return ParseCommandLine(arguments, [&](const std::string& name) { return name == variable ? std::optional(value) : std::nullopt; });
}

std::string AddressOf(const std::string& text, std::optional<int> port = {})
{
    const ServerAddress address = MakeAddress(ParseServer(text), port);
    return address.Url() + " " + std::to_string(address.port) + ", " + address.Text();
}

TEST(ServerAddress, ReadsEachFormAndRefusesWhatNamesNoServer)
{
    ExpectEach([](const std::string& text) { return AddressOf(text); },
               {{"files.example.com", "https://files.example.com 443, https://files.example.com"},
                {"http://files.example.com", "http://files.example.com 80, http://files.example.com"},
                {"HTTPS://Files.Example.com/", "https://files.example.com 443, https://files.example.com"},
                {"https://[::1]:8443", "https://[::1] 8443, https://[::1]:8443"}});
    EXPECT_EQ(AddressOf("host:8080", 8080), "https://host 8080, https://host:8080");
    EXPECT_EQ(AddressOf("https://host", 80), "https://host 80, https://host:80");
    EXPECT_EQ(AddressOf("http://[fe80::1]", 81), "http://[fe80::1] 81, http://[fe80::1]:81");
    for (const char* text : {"localhost", "LOCALHOST:1", "127.0.0.1", "127.9.9.9", "[::1]", "a.localhost"})
        EXPECT_TRUE(MakeAddress(ParseServer(text), {}).IsThisMachine()) << text;
    for (const char* text : {"127.example.com", "localhost.example.com", "10.0.0.1", "[::2]", "mylocalhost"})
        EXPECT_FALSE(MakeAddress(ParseServer(text), {}).IsThisMachine()) << text;
    EXPECT_THROW(AddressOf("host:80", 81), UsageError);
    for (const char* text : {"https://", "ftp://host", "http://host/path", "host?x", "user@host", "::1", "[::1", "[::1]x", "host:0",
                             "host:65536", "host:80x", "a\nb", ":80"})
        EXPECT_THROW(AddressOf(text), UsageError) << text;
}

TEST(CommandLine, PrefersOptionsToTheEnvironment)
{
    EXPECT_EQ(Parse({"version"}, "QUENDRA_SERVER", "env").options.server->host, "env");
    EXPECT_EQ(Parse({"version", "--server", "own"}, "QUENDRA_SERVER", "env").options.server->host, "own");
    EXPECT_EQ(Parse({"version"}, "QUENDRA_PORT", "81").options.port, 81);
    EXPECT_EQ(Parse({"version", "--port", "82"}, "QUENDRA_PORT", "81").options.port, 82);
    EXPECT_EQ(Parse({"version", "--server", "host:82"}, "QUENDRA_PORT", "81").options.port, std::nullopt);
    EXPECT_EQ(Parse({"version"}, "QUENDRA_TOKEN", "env").options.token, "env");
    EXPECT_EQ(Parse({"version", "--token", ""}, "QUENDRA_TOKEN", "env").options.token, "");
    EXPECT_THROW(Parse({"version"}, "QUENDRA_PORT", "many"), UsageError);
}

TEST(CommandLine, SaysWhatItDoesNotTake)
{
    const auto refusalOf = [](const Texts& arguments) {
        try
        {
            static_cast<void>(Parse(arguments));
        }
        catch (const UsageError& error)
        {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(refusalOf({"ls", "/home", "a", "--none", "b"}), "ls: not expected: a --none b");
    EXPECT_EQ(refusalOf({"--none", "ls", "/home"}), "ls: not expected: --none");
    EXPECT_EQ(refusalOf({"rm", ""}), "an empty text is no path on the server; the user's root is /");
    EXPECT_NE(refusalOf({"put", "caf\xE9", "/home/"}).find("is not valid UTF-8"), std::string::npos);
}

TEST(CommandLine, PutsServerPathsIntoForm)
{
    const auto pathOf = [](const std::string& text) { return ToNarrow(std::get<Command::Stat>(Parse({"stat", text}).command).path); };
    ExpectEach(pathOf, {{"/", "/"}, {"docs", "/docs"}, {"/docs//", "/docs"}, {"/-x", "/-x"}, {"ls", "/ls"}});
    EXPECT_EQ(std::get<Command::Put>(Parse({"put", "a", "docs/"}).command).path, L"/docs/");
}

TEST(TimeText, ReadsWhatPeopleWrite)
{
    ExpectEach([](const std::string& text) { return ToNarrow(ParseTime(text).value_or(CAttributeTime()).ToString()); },
               {{"2015-03-02T10:20:30.1234567Z", "2015-03-02T10:20:30.123Z"},
                {"2024-02-29 23:59Z", "2024-02-29T23:59:00.000Z"},
                {"1601-01-01T00:00:00.5Z", "1601-01-01T00:00:00.500Z"},
                {"9999-12-31T23:59:59Z", "9999-12-31T23:59:59.000Z"}});
    // Local time, whatever it is here, comes back as it was written.
    ExpectEach([](const std::string& text) { return TimeForPeople(ParseTime(text).value_or(CAttributeTime())); },
               {{"2026-03-01 12:30", "2026-03-01 12:30"}, {"2001-12-31", "2001-12-31 00:00"}, {"", "-"}});
    EXPECT_GT(ParseTime("now")->GetTicks(), ParseTime("2020-01-01")->GetTicks());
    EXPECT_FALSE(TimeForPeople(CAttributeTime(CAttributeTime::kUnset - 1)).empty());
    for (const char* text :
         {"", "2023-02-29", "2026-13-01", "1600-12-31Z", "26-01-01", "2026-01-01T", "2026-01-01T24:00", "2026-01-01T10:60",
          "2026-01-01T10:00:60", "2026-01-01T10:00:00.", "2026-01-01T10:00:00+01:00", "2026-01-01 ", "2026-01-01x"})
        EXPECT_FALSE(ParseTime(text)) << text;
}

TEST(Text, KeepsATerminalSafe)
{
    const std::string hostile = std::string("\u00FC\U0001F600 \x1B[2J\n\r\t\x07\x7F \u009B31m cod\u202Egpj.exe\u2066 \xFF") + '\0';
    EXPECT_EQ(Printable(hostile), "\u00FC\U0001F600 \\x1B[2J\\n\\r\\t\\x07\\x7F \\x9B31m cod\\u202Egpj.exe\\u2066 \uFFFD\\x00");
}

TEST(Text, CountsColumns)
{
    ExpectEach([](std::string_view text) { return std::to_string(DisplayWidth(text)); },
               {{"", "0"}, {"abc", "3"}, {"\u00FC", "1"}, {"u\u0308", "1"}, {"\u65E5\u672C", "4"}, {"\U0001F600", "2"}});
    ExpectEach([](std::string_view text) { return FitTo(text, 4) + "|" + FitTo(text, 0); },
               {{"abcd", "abcd|"}, {"abcdef", "abc\u2026|"}, {"\u65E5\u672C\u8A9E", "\u65E5\u2026|"}});
    Table table({{"Size", Table::Align::Right}, {"Name"}, {"Note"}});
    table.Add({"1 B", "\u65E5\u672C", "x"});
    table.Add({"1.5 KiB", "a", ""});
    EXPECT_EQ(table.Render(), "   Size  Name  Note\n    1 B  \u65E5\u672C  x\n1.5 KiB  a\n");
}

TEST(Text, WritesSizesDurationsAndWords)
{
    ExpectEach([](const std::string& bytes) { return BinarySize(std::stoull(bytes)); },
               {{"1023", "1023 B"}, {"1024", "1.0 KiB"}, {"1048575", "1.0 MiB"}, {"18446744073709551615", "16.0 EiB"}});
    ExpectEach([](const std::string& seconds) { return DurationText(std::stoull(seconds)); },
               {{"7", "0:07"}, {"750", "12:30"}, {"3723", "1:02:03"}});
}

TEST(System, QuotesWordsForItsShell)
{
    struct Case
    {
        std::string word;
        std::string posix;
        std::string windows;
    };
    const Case cases[] = {{"/a/b.txt", "/a/b.txt", "/a/b.txt"},
                          {"", "''", "\"\""},
                          {"a b", "'a b'", "\"a b\""},
                          {"C:\\a", "'C:\\a'", "C:\\a"},
                          {"C:\\a b\\", "'C:\\a b\\'", "\"C:\\a b\\\\\""},
                          {"$x'\"{a,b}", "'$x'\\''\"{a,b}'", "\"$x'\\\"{a,b}\""},
                          {"\u00FC", "'\u00FC'", "\"\u00FC\""},
                          {"a\nb'\\c", "$'a\\nb\\'\\\\c'", "\"a\\nb'\\c\""}};
    for (const Case& each : cases)
        EXPECT_EQ(System::ShellWord(each.word), kIsWindows ? each.windows : each.posix) << each.word;
}

TEST(System, KnowsWhatAFileCanBeCalled)
{
    for (const wchar_t* name : {L"plan.txt", L".hidden", L"com", L"nullify", L"\u65E5\u672C", L"a b"})
        EXPECT_TRUE(System::IsFileName(name)) << name;
    for (const wchar_t* name : {L"", L".", L"..", L"a/b"})
        EXPECT_FALSE(System::IsFileName(name)) << name;
    for (const wchar_t* name : {L"a\\b", L"a:b", L"nul", L"Com1.txt", L"a.", L"a ", L"a?", L"a\tb"})
        EXPECT_EQ(System::IsFileName(name), !kIsWindows) << name;
}

TEST(Progress, FitsEveryWidth)
{
    const std::string wide = "\u65E5\u672C\u8A9E\u65E5\u672C\u8A9E\u65E5\u672C\u8A9E\u65E5\u672C\u8A9E.txt";
    const ProgressState states[] = {{"film.mkv", 450, 1000, 10},
                                    {wide, 5ULL << 40, 1ULL << 60, 1e9},
                                    {"", 0, 0, 0},
                                    {"delta", 1ULL << 20, std::nullopt, 1e6},
                                    {"more than announced", 2000, 1000, 1e-9}};
    for (const auto& state : states)
        for (std::size_t columns = 0; columns <= 130; ++columns)
            EXPECT_LE(DisplayWidth(RenderProgress(state, columns)), columns) << state.label << " in " << columns;

    EXPECT_EQ(RenderProgress(states[0], 79), "film.mkv   45% [=======>        ]      450 B of 1000 B       10 B/s   0:55 left");
    EXPECT_EQ(RenderProgress(states[0], 20), " 45%   0:55 left");
    EXPECT_EQ(RenderProgress(states[0], 4), " 45%");
    EXPECT_EQ(RenderProgress(states[3], 79), "delta    1.0 MiB  976.6 KiB/s");
    EXPECT_EQ(RenderProgress({"", 999'999, 1'000'000, 0}, 4), " 99%") << "what is not all there is not 100%";
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
    const std::pair<ResultCode, const char*> cases[] = {{2, "local file"},        {12029, "connect"},           {12100, "transport"},
                                                        {20006, "log in"},        {20418, "HTTP 418"},          {20404, "404, not found"},
                                                        {20005, "error 5"},       {403, "HTTP 403, forbidden"}, {0x80004005, "memory"},
                                                        {0x80072EE7, "resolved"}, {99999, "error 79999"},       {12345, "platform"}};
    for (const auto& [code, part] : cases)
        EXPECT_NE(Result::MeaningOf(code).find(part), std::string::npos) << code << ": " << Result::MeaningOf(code);
    for (ResultCode code = 0; code < 30000; ++code)
        EXPECT_EQ(Result::MeaningOf(code).find_first_of("()\n"), std::string::npos) << code;
    struct Failure
    {
        ResultCode code;
        ServerAnswer answer;
        std::string advice;
        std::string text;
    };
    const Failure failures[] = {
        {20005, {404, "no such item", ""}, "", "the server refused: its error 5; it says \"no such item\" with HTTP 404"},
        {20005, {}, "", "the server refused: its error 5; '--trace -' shows its reply"},
        {20404, {404, "", ""}, "", "the server refused: HTTP 404, not found"},
        {20404, {404, "gone", ""}, "try", "the server refused: HTTP 404, not found; it says \"gone\"; try"},
        {20302, {302, "", "https://b"}, "", "the server refused: HTTP 302; the server redirects to https://b: --server wants that address"},
        {20302, {302, "", "another path"}, "", "the server refused: HTTP 302; the server redirects to another path"},
        {8, {429, "", ""}, "", Result::MeaningOf(8) + "; the server answered with HTTP 429, too many requests"},
        {13, {200, "", ""}, "", Result::MeaningOf(13)},
        {12030, {404, "not whole", ""}, "", "the connection broke; the server answered with HTTP 404, not found"}};
    for (const Failure& each : failures)
        EXPECT_EQ(FailureMeaning(each.code, each.answer, each.advice), each.text);
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
