// Text between narrow and wide: nothing that Unicode can express is lost, and nothing else breaks the conversion.

#include "TextConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace
{

const std::string kReplacement = "\xEF\xBF\xBD";

// The encodings' own definitions, written out to be held against the platform's.
void AppendUtf8(std::string& text, char32_t point)
{
    const unsigned continuations = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    constexpr unsigned char kLeads[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLeads[continuations] | (point >> (6 * continuations)));
    for (unsigned left = continuations; left-- > 0;)
        text += static_cast<char>(0x80U | ((point >> (6 * left)) & 0x3FU));
}

void AppendWide(std::wstring& text, char32_t point)
{
    if (sizeof(wchar_t) > 2 || point < 0x10000)
        text += static_cast<wchar_t>(point);
    else
        text.append({static_cast<wchar_t>(0xD7C0U + (point >> 10U)), static_cast<wchar_t>(0xDC00U + (point & 0x3FFU))});
}

TEST(TextConversion, KeepsEveryCharacterOfEveryPlane)
{
    for (char32_t plane = 0; plane <= 0x10; ++plane)
    {
        std::string narrow;
        std::wstring wide;
        for (char32_t point = plane << 16U; point <= (plane << 16U | 0xFFFFU); ++point)
        {
            if (point >= 0xD800 && point <= 0xDFFF)
                continue;
            AppendUtf8(narrow, point);
            AppendWide(wide, point);
        }
        // Compared for truth: a plane's text is too long to be printed.
        EXPECT_TRUE(ToWide(narrow) == wide) << "plane " << static_cast<unsigned>(plane);
        EXPECT_TRUE(ToNarrow(wide) == narrow) << "plane " << static_cast<unsigned>(plane);
    }
}

TEST(TextConversion, ReplacesLoneSurrogates)
{
    const wchar_t high = 0xD83D;
    const wchar_t low = 0xDE00;
    const std::pair<std::wstring, std::string> cases[] = {
        {{L'a', high, L'b'}, "a" + kReplacement + "b"},
        {{L'a', low, L'b'}, "a" + kReplacement + "b"},
        {{L'a', high}, "a" + kReplacement},
        {{low, high}, kReplacement + kReplacement},
        {{high, high, low}, kReplacement + "\xF0\x9F\x98\x80"},
        {{high, low}, "\xF0\x9F\x98\x80"},
    };
    for (const auto& [wide, narrow] : cases)
        EXPECT_EQ(ToNarrow(wide), narrow);
}

TEST(TextConversion, ReplacesInvalidBytesAndKeepsTheirNeighbours)
{
    const std::string cases[] = {
        "a\x80z",             // a continuation without a start
        "a\xC3z",             // a start without its continuation
        "a\xE2\x82z",         // cut short
        "a\xC0\xAFz",         // overlong
        "a\xE0\x80\xAFz",     // overlong
        "a\xED\xA0\x80z",     // a surrogate
        "a\xF4\x90\x80\x80z", // beyond Unicode
        "a\xFE\xFFz",         // no bytes of UTF-8
    };
    for (const auto& text : cases)
    {
        const auto wide = ToWide(text);
        ASSERT_GE(wide.size(), 3U);
        EXPECT_EQ(wide.front(), L'a');
        EXPECT_EQ(wide.back(), L'z');
        // How many replacement characters stand for one fault is the platform's choice.
        EXPECT_EQ(std::count(wide.begin(), wide.end(), wchar_t{0xFFFD}), static_cast<std::ptrdiff_t>(wide.size() - 2)) << ToNarrow(wide);
    }
    EXPECT_EQ(ToWide("z\xE2\x82").front(), L'z');
    EXPECT_EQ(ToWide("\xE2\x82").front(), wchar_t{0xFFFD});
}

TEST(TextConversion, KeepsEmptyTextEmbeddedNulsAndAsciiInBothEncodings)
{
    EXPECT_EQ(ToWide(""), L"");
    EXPECT_EQ(ToNarrow(L""), "");
    std::string ascii;
    for (char character = 0; character < 0x7F; ++character)
        ascii += character;
    const std::wstring wide(ascii.begin(), ascii.end());
    EXPECT_EQ(ToWide(ascii), wide);
    EXPECT_EQ(ToNarrow(wide), ascii);
    EXPECT_EQ(ToWide(ascii, NarrowEncoding::ThreadAnsi), wide);
    EXPECT_EQ(ToNarrow(wide, NarrowEncoding::ThreadAnsi), ascii);
}

} // namespace
