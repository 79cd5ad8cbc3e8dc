#include "UrlEncoding.h"

#include <gtest/gtest.h>

#include <string>

TEST(UrlEncodingTests, EveryAsciiCharacterInBothModes)
{
    std::wstring ascii;
    for (wchar_t character = 0; character < 0x80; ++character)
        ascii += character;
    const std::string controls = "%00%01%02%03%04%05%06%07%08%09%0A%0B%0C%0D%0E%0F%10%11%12%13%14%15%16%17%18%19%1A%1B%1C%1D%1E%1F";
    EXPECT_EQ(EncodeUrl(ascii, UrlEncodingMode::Path),
              controls + "%20%21%22%23%24%25%26%27%28%29%2A%2B%2C-./0123456789%3A%3B%3C%3D%3E%3F%40"
                         "ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D~%7F");
    EXPECT_EQ(EncodeUrl(ascii, UrlEncodingMode::Form),
              controls + "+%21%22%23%24%25%26%27%28%29%2A%2B%2C-.%2F0123456789%3A%3B%3C%3D%3E%3F%40"
                         "ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D%7E%7F");
}

TEST(UrlEncodingTests, TextBeyondAscii)
{
    const wchar_t lead = 0xD83D;
    const wchar_t trail = 0xDE00;
    const std::tuple<std::wstring, const char*, const char*> cases[] = {
        {L"", "", ""},
        {L"/a b/\u00e9", "/a%20b/%C3%A9", "%2Fa+b%2F%C3%A9"},
        {L"\U0001F600", "%F0%9F%98%80", "%F0%9F%98%80"},
        {{lead, trail}, "%F0%9F%98%80", "%F0%9F%98%80"},
        {{L'a', lead}, "a%EF%BF%BD", "a%EF%BF%BD"},
        {{trail, L'a'}, "%EF%BF%BDa", "%EF%BF%BDa"},
    };
    for (const auto& [text, path, form] : cases)
    {
        EXPECT_EQ(EncodeUrl(text, UrlEncodingMode::Path), path);
        EXPECT_EQ(EncodeUrl(text, UrlEncodingMode::Form), form);
    }
}
