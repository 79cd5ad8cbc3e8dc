#include "TextComparison.h"
#include "TextConversion.h"

#include <gtest/gtest.h>

#include <string>

TEST(TextComparisonTests, EqualIgnoringCaseIsOrdinalAndWide)
{
    const std::tuple<std::wstring, std::wstring, bool> cases[] = {
        {L"", L"", true},
        {L"", L"a", false},
        {L"WRITE", L"wRiTe", true},
        {L"[", L"{", false}, // neighbours of the letters differ by the case bit as well
        {L"@", L"`", false},
        {L"\u00c4RGER", L"\u00e4rger", true},
        {L"\u0416\u0423\u041a", L"\u0436\u0443\u043a", true}, // Cyrillic
        {L"\u03a3", L"\u03c3", true},                         // Greek sigma
        {L"\u0178", L"\u00ff", true},                         // capital outside Latin-1
        {L"\u0131", L"I", false},                             // dotless i: the same in every language
        {L"\u0130", L"i", false},
        {L"\u017f", L"S", false}, // long s
        {L"K", L"\u212a", false}, // Kelvin sign
        {std::wstring(L"a\0b", 3), std::wstring(L"A\0B", 3), true},
        {std::wstring(L"a\0b", 3), std::wstring(L"A\0C", 3), false},
        {{static_cast<wchar_t>(0xD800)}, {static_cast<wchar_t>(0xD800)}, true},
        {{static_cast<wchar_t>(0xD800)}, {static_cast<wchar_t>(0xD801)}, false},
    };
    for (const auto& [left, right, equal] : cases)
    {
        EXPECT_EQ(EqualIgnoringCase(left, right), equal) << ::testing::PrintToString(left);
        EXPECT_EQ(EqualIgnoringCase(right, left), equal) << ::testing::PrintToString(left);
    }
}

TEST(TextComparisonTests, EqualIgnoringAsciiCaseAgreesForAsciiTexts)
{
    for (const char* const text : {"", "WRITE", "write", "wRiTe", "WRIT", "WRITER", "WR\u0131TE", "WRITE\u0301", "7RITE", "\xff"})
    {
        EXPECT_EQ(EqualIgnoringAsciiCase(text, "WRITE"), EqualIgnoringCase(ToWide(text), L"WRITE")) << text;
        EXPECT_EQ(EqualIgnoringAsciiCase(text, ""), *text == '\0') << text;
    }
}
