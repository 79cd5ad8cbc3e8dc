// Settings as an administrator stores them, and the values that a process reads once.

#include "RegistryValues.h"
#include "Settings.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "WinHttpImpl.h"

#include <gtest/gtest.h>

namespace
{

using Root = RegistryValues::Root;

TEST(Settings, AreTakenFromTheFirstPlaceThatHasThem)
{
    RegistryValues values;
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5), 5);
    values.SetNumber(Root::Machine, L"Number", 1);
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5), 1);
    values.SetNumber(Root::User, L"Number", 2);
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5), 2);
    EXPECT_TRUE(Settings::ReadRaw(L"Number", REG_DWORD).place.Text() == L"HKEY_CURRENT_USER\\Software\\Ostvalen\\Quendra");
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5, L"S-1-5-21-7"), 2) << "a user without the value is passed over";
    values.SetNumber(Root::OtherUser, L"Number", 3);
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5, L"S-1-5-21-7"), 3);
    EXPECT_EQ(Settings::ReadNumber(L"Number", 5), 2);

    const auto places = Settings::SearchList(L"S-1-5-21-7");
    ASSERT_EQ(places.size(), 3U);
    EXPECT_TRUE(places[0].Text() == L"HKEY_USERS\\S-1-5-21-7\\Software\\Ostvalen\\Quendra");
    EXPECT_TRUE(places[2].Text() == L"HKEY_LOCAL_MACHINE\\Software\\Ostvalen\\Quendra");
}

TEST(Settings, OfAnotherTypeArePassedOver)
{
    RegistryValues values;
    values.SetText(Root::User, L"Value", L"7");
    EXPECT_EQ(Settings::ReadNumber(L"Value", 5), 5);
    values.SetNumber(Root::Machine, L"Value", 9);
    EXPECT_EQ(Settings::ReadNumber(L"Value", 5), 9) << "the next place is searched";
    EXPECT_TRUE(Settings::ReadText(L"Value", L"default") == L"7");
    EXPECT_TRUE(Settings::ReadTextList(L"Value").empty());
}

TEST(Settings, OfEachTypeAreRead)
{
    RegistryValues values;
    values.SetNumber(Root::User, L"Zero", 0);
    values.SetNumber(Root::User, L"Large", 0xFFFFFFFF);
    values.SetText(Root::User, L"Text", L"\xe9 \x20ac");
    values.SetExpandableText(Root::User, L"Expand", L"%HOME%\\x");
    values.SetTextList(Root::User, L"List", {L"one", L"two"});
    EXPECT_FALSE(Settings::ReadFlag(L"Zero", true));
    EXPECT_TRUE(Settings::ReadFlag(L"Large", false));
    EXPECT_TRUE(Settings::ReadFlag(L"Missing", true));
    EXPECT_EQ(Settings::ReadNumber(L"Large", 0), -1);
    EXPECT_TRUE(Settings::ReadText(L"Text", L"") == L"\xe9 \x20ac");
    EXPECT_TRUE(Settings::ReadText(L"Expand", L"") == L"%HOME%\\x") << "not expanded";
    EXPECT_TRUE(Settings::ReadText(L"Missing", L"default") == L"default");
    EXPECT_TRUE((Settings::ReadTextList(L"List") == std::vector<std::wstring>{L"one", L"two"}));
}

TEST(Settings, AreReadOncePerProcessForConnections)
{
    RegistryValues values;
    values.SetNumber(Root::Machine, L"HTTPReceiveResponseTimeout", 1111);
    values.SetNumber(Root::User, L"HTTPConnectionRequestTimeout", 2222);
    const auto session = std::make_shared<WinHttpSession>();
    ASSERT_EQ(session->Initialise(), 0U);
    WinHttpConnection connection;
    TraceCapture trace;
    ASSERT_EQ(connection.Initialise(L"127.0.0.1", 1, session, 0, 0), 0U);
    values.SetNumber(Root::User, L"HTTPReceiveResponseTimeout", 3333);
    ASSERT_EQ(connection.Initialise(L"127.0.0.1", 1, session, 0, 0), 0U);
    EXPECT_EQ(trace.CountOf(EVT_INFO, "Calling WinHttpSetTimeouts. CONN:2222, RES:0, SEND:60000, RECV:1111"), 2U) << trace;
}

} // namespace
