// Text: conversion, comparison, URLs, paths, times, identifiers, JSON.

#include "CaseFile.h"
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
    EXPECT_TRUE(EqualIgnoringCase(std::wstring{kHigh}, std::wstring{kHigh}));
    EXPECT_FALSE(EqualIgnoringCase(std::wstring{kHigh}, std::wstring{kLow}));
    for (const char* const text : {"", "WRITE", "wRiTe", "WRIT", "WRITER", "WR\u0131TE", "7RITE", "\xff"})
    {
        EXPECT_EQ(EqualIgnoringAsciiCase(text, "WRITE"), EqualIgnoringCase(ToWide(text), L"WRITE")) << text;
        EXPECT_EQ(EqualIgnoringAsciiCase(text, ""), *text == '\0') << text;
    }
    EXPECT_TRUE(EqualIgnoringAsciiCase("azAZ", "AZaz"));
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

std::string YesOrNo(bool value)
{
    return value ? "yes" : "no";
}

TEST(Texts, AreReadAndShownAsTextsJsonSays)
{
    ExpectCases(ReadCaseFile("Texts.json"),
                {{"equal without case",
                  [](const Json::Value& given) {
        const bool isEqual = EqualIgnoringCase(ToWide(given[0].asString()), ToWide(given[1].asString()));
        EXPECT_EQ(EqualIgnoringCase(ToWide(given[1].asString()), ToWide(given[0].asString())), isEqual);
        return YesOrNo(isEqual);
                  }},
                 {"paths in their extended form",
                  [](const Json::Value& given) { return ToNarrow(PathUtilities::NormalizePath(ToWide(given[0].asString()))); }},
                 {"parts of URLs",
                  [](const Json::Value& given) {
        const std::wstring text = ToWide(given[0].asString());
        return EncodeUrl(text, UrlEncodingMode::Path) + " " + EncodeUrl(text, UrlEncodingMode::Form);
                  }},
                {"identifiers",
                 [](const Json::Value& given) {
        const auto id = ParseIdentifier(given[0].asString());
        return id ? ToNarrow(IdentifierText(*id)) : "none";
                 }},
                {"objects", [](const Json::Value& given) {
                     const auto object = ParseJsonObject(given[0].asString());
                     return object ? JsonLine(*object) : "none";
                 }}});
    const Quendra::UploadId id = {0x0F8FAD5B, 0xD9CB, 0x469F, {0xA1, 0x65, 0x70, 0x86, 0x77, 0x28, 0x95, 0x0E}};
    EXPECT_EQ(ToNarrow(IdentifierText(id)), "0F8FAD5B-D9CB-469F-A165-70867728950E");
}

} // namespace
