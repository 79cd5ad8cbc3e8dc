// Text: conversion, comparison, URLs, paths, times, identifiers, JSON.

#include "Identifier.h"
#include "JsonText.h"
#include "PathUtilities.h"
#include "TextComparison.h"
#include "TextConversion.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "UrlEncoding.h"
#include "UtcText.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

constexpr wchar_t kHigh = 0xD83D;
constexpr wchar_t kLow = 0xDE00;

TEST(TextConversion, KeepsTheFirstAndLastCharactersOfEveryLength)
{
    const std::string narrow = "\x7f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0001F600\U000FFFFF\U00100000\U0010FFFF";
    const std::wstring wide = L"\x7f\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0001F600\U000FFFFF\U00100000\U0010FFFF";
    EXPECT_EQ(ToWide(narrow), wide);
    EXPECT_EQ(ToNarrow(wide), narrow);
}

TEST(TextConversion, ReplacesLoneSurrogates)
{
    const std::pair<std::wstring, std::string> cases[] = {
        {{L'a', kHigh, L'b'}, "a\ufffdb"}, {{L'a', kLow, L'b'}, "a\ufffdb"},           {{L'a', kHigh}, "a\ufffd"},
        {{kLow, kHigh}, "\ufffd\ufffd"},   {{kHigh, kHigh, kLow}, "\ufffd\U0001F600"},
    };
    for (const auto& [wide, narrow] : cases)
        EXPECT_EQ(ToNarrow(wide), narrow);
}

TEST(TextConversion, ReplacesInvalidBytesAndKeepsTheirNeighbours)
{
    // A lone continuation byte, a lone start byte, a cut sequence, two overlong ones, a surrogate, above Unicode's end, invalid bytes.
    for (const std::string text :
         {"a\x80z", "a\xC3z", "a\xE2\x82z", "a\xC0\xAFz", "a\xE0\x80\xAFz", "a\xED\xA0\x80z", "a\xF4\x90\x80\x80z", "a\xFE\xFFz"})
    {
        const std::wstring wide = ToWide(text);
        ASSERT_GE(wide.size(), 3U);
        EXPECT_EQ(wide.front(), L'a');
        EXPECT_EQ(wide.back(), L'z');
        // The platforms differ in how many replacement characters they write for one fault.
        EXPECT_EQ(std::count(wide.begin(), wide.end(), wchar_t{0xFFFD}), static_cast<std::ptrdiff_t>(wide.size() - 2)) << ToNarrow(wide);
    }
    EXPECT_EQ(ToWide("\xE2\x82").front(), wchar_t{0xFFFD});
}

TEST(TextConversion, KeepsNoTextAndAsciiInTheThreadsEncodingToo)
{
    for (const std::wstring& wide : {std::wstring(), std::wstring(L"\0 az~\x7f", 6)})
    {
        const std::string narrow(wide.begin(), wide.end());
        EXPECT_EQ(ToWide(narrow, NarrowEncoding::ThreadAnsi), wide);
        EXPECT_EQ(ToNarrow(wide, NarrowEncoding::ThreadAnsi), narrow);
    }
}

TEST(TextComparison, IgnoresCaseInEveryLanguageAlike)
{
    const std::tuple<std::wstring, std::wstring, bool> cases[] = {
        {L"", L"", true},
        {L"", L"a", false},
        {L"WRITE", L"wRiTe", true},
        {L"[", L"{", false}, // neighbours of the letters differ by the case bit as well
        {L"\u00c4RGER", L"\u00e4rger", true},
        {L"\u0416\u0423\u041a", L"\u0436\u0443\u043a", true}, // Cyrillic
        {L"\u0178", L"\u00ff", true},                         // capital outside Latin-1
        {L"\u0131", L"I", false},                             // dotless i
        {L"\u0130", L"i", false},
        {L"\u017f", L"S", false}, // long s
        {L"K", L"\u212a", false}, // Kelvin sign
        {std::wstring(L"a\0b", 3), std::wstring(L"A\0B", 3), true},
        {std::wstring(L"a\0b", 3), std::wstring(L"A\0C", 3), false},
        {{kHigh}, {kHigh}, true},
        {{kHigh}, {kLow}, false},
    };
    for (const auto& [left, right, equal] : cases)
    {
        EXPECT_EQ(EqualIgnoringCase(left, right), equal) << ::testing::PrintToString(left);
        EXPECT_EQ(EqualIgnoringCase(right, left), equal) << ::testing::PrintToString(left);
    }
    for (const char* const text : {"", "WRITE", "wRiTe", "WRIT", "WRITER", "WR\u0131TE", "7RITE", "\xff"})
    {
        EXPECT_EQ(EqualIgnoringAsciiCase(text, "WRITE"), EqualIgnoringCase(ToWide(text), L"WRITE")) << text;
        EXPECT_EQ(EqualIgnoringAsciiCase(text, ""), *text == '\0') << text;
    }
    EXPECT_TRUE(EqualIgnoringAsciiCase("azAZ", "AZaz"));
}

TEST(UrlEncoding, KeepsFewCharactersAndEscapesTheOthers)
{
    std::wstring ascii;
    for (wchar_t character = 0; character < 0x80; ++character)
        ascii += character;
    const std::string controls = "%00%01%02%03%04%05%06%07%08%09%0A%0B%0C%0D%0E%0F%10%11%12%13%14%15%16%17%18%19%1A%1B%1C%1D%1E%1F";
    const std::tuple<std::wstring, std::string, std::string> cases[] = {
        {ascii,
         controls + "%20%21%22%23%24%25%26%27%28%29%2A%2B%2C-./0123456789%3A%3B%3C%3D%3E%3F%40"
                    "ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D~%7F",
         controls + "+%21%22%23%24%25%26%27%28%29%2A%2B%2C-.%2F0123456789%3A%3B%3C%3D%3E%3F%40"
                    "ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D%7E%7F"},
        {L"", "", ""},
        {L"/\u00e9\U0001F600", "/%C3%A9%F0%9F%98%80", "%2F%C3%A9%F0%9F%98%80"},
        {{kLow, kHigh, kLow}, "%EF%BF%BD%F0%9F%98%80", "%EF%BF%BD%F0%9F%98%80"},
    };
    for (const auto& [text, path, form] : cases)
    {
        EXPECT_EQ(EncodeUrl(text, UrlEncodingMode::Path), path);
        EXPECT_EQ(EncodeUrl(text, UrlEncodingMode::Form), form);
    }
}

TEST(PathUtilities, NormalizePathGivesTheExtendedFormAndTracesWhatItDoesNotKnow)
{
    const std::pair<std::wstring, std::wstring> cases[] = {
        {L"\\", L"\\"},
        {L"C:", L"\\\\?\\C:"},
        {L"C:\\dir\\", L"\\\\?\\C:\\dir"},
        {L"C:\\dir\\\\", L"\\\\?\\C:\\dir\\"},
        {L"\\\\server\\share\\x", L"\\\\?\\UNC\\server\\share\\x"},
        {L"\\\\", L"\\\\?\\UNC"},
        {L"\\\\?\\C:\\dir\\", L"\\\\?\\C:\\dir"},
        {L"\\\\?\\UNC\\server\\??", L"\\\\?\\UNC\\server\\??"},
        {L"\\??\\C:\\a??b", L"\\\\?\\C:\\a\\?b"},
        {L"\\??\\C:\\a???\\", L"\\\\?\\C:\\a\\??"},
        {L"\\??\\C:\\\u00e9\u4e16\\", L"\\\\?\\C:\\\u00e9\u4e16"},
        {L"relative\\path\\", L"relative\\path\\"},
        {L"\\?\\C:\\dir", L"\\?\\C:\\dir"},
    };
    for (const auto& [path, expected] : cases)
    {
        TraceCapture trace;
        EXPECT_EQ(PathUtilities::NormalizePath(path), expected);
        std::vector<std::string> errors;
        if (path == expected && path.size() > 1 && !path.starts_with(L"\\\\?"))
            errors.push_back("Unknown path format [" + ToNarrow(path) + "]");
        EXPECT_EQ(trace.Messages(EVT_ERROR), errors);
    }
}

TEST(UtcText, HasTheDigitsOfItsUnit)
{
    using namespace std::chrono;
    using Ticks = duration<std::int64_t, std::ratio<1, 10'000'000>>;
    const sys_seconds leapDay = sys_days(2024y / 2 / 29) + 23h + 59min + 9s;
    EXPECT_EQ(FormatUtc(leapDay), "2024-02-29T23:59:09Z");
    EXPECT_EQ(FormatUtc(leapDay + 7ms), "2024-02-29T23:59:09.007Z");
    EXPECT_EQ(FormatUtc(leapDay + Ticks(1'234'567)), "2024-02-29T23:59:09.1234567Z");
    EXPECT_EQ(FormatUtc(sys_time<Ticks>(sys_days(1601y / 1 / 1)) - Ticks(1)), "1600-12-31T23:59:59.9999999Z");
}

TEST(UtcText, OfHttpHasOneForm)
{
    using namespace std::chrono;
    EXPECT_EQ(FormatHttpDate(sys_days(1994y / 11 / 6) + 8h + 49min + 37s), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(FormatHttpDate(sys_days(1969y / 12 / 31)), "Wed, 31 Dec 1969 00:00:00 GMT");
}

TEST(Identifier, TravelsAsText)
{
    const std::string text = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    const Quendra::UploadId id = {0x0F8FAD5B, 0xD9CB, 0x469F, {0xA1, 0x65, 0x70, 0x86, 0x77, 0x28, 0x95, 0x0E}};
    EXPECT_EQ(IdentifierText(id), ToWide(text));
    for (const auto& read : {std::string("0f8fad5b-d9cb-469f-a165-70867728950e"), "{" + text + "}"})
        EXPECT_EQ(IdentifierText(ParseIdentifier(read).value_or(Quendra::UploadId{})), ToWide(text)) << read;
    for (const auto& refused : {std::string("0F8FAD5BD9CB469FA16570867728950E"), text + "0", text.substr(0, 34), "+" + text.substr(1),
                                text.substr(0, 35) + "x", "{" + text, std::string("{}"), std::string(36, '-')})
        EXPECT_FALSE(ParseIdentifier(refused)) << refused;
}

TEST(JsonText, IsOneLineAndReadsObjectsOnly)
{
    const std::string text = R"({"a":[1,"\n"],"b":"\u00e9\ud83d\ude00"})";
    EXPECT_EQ(JsonLine(ParseJsonObject(text).value_or(Json::Value())), "{\"a\":[1,\"\\n\"],\"b\":\"\u00e9\U0001F600\"}");
    for (const char* refused : {"", "[]", "1", "null", "{", "{\"a\":}"})
        EXPECT_FALSE(ParseJsonObject(refused)) << refused;
}

} // namespace
