// Settings as an administrator stores them, and the values that a process reads once.

#include "Attributes.h"
#include "RegistryValues.h"
#include "ScriptedTransport.h"
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

TEST(Settings, OfTheMappingsWaitAreReadOnEveryCall)
{
    RegistryValues values;
    ScriptedClient client;
    client.Negotiate();
    const auto asked = [&] {
        client.script.requests.clear();
        std::vector<CMapping*> mappings;
        client->GetRemoteFolderMap(mappings);
        return client.script.requests.at(0).at(0);
    };
    const std::string request = "GET /sync/folders?includeAll=true&timeout=";
    EXPECT_EQ(asked(), request + "30 flags=0");
    values.SetText(Root::User, L"OfflineMappointTimeout", L"5");
    EXPECT_EQ(asked(), request + "30 flags=0");
    values.SetNumber(Root::Machine, L"OfflineMappointTimeout", 0xFFFFFFFF);
    EXPECT_EQ(asked(), request + "-1 flags=0") << "passed on as it is";
    values.SetNumber(Root::User, L"OfflineMappointTimeout", 0);
    EXPECT_EQ(asked(), request + "0 flags=0");
}

// The values that a process reads once, as stored by a machine's and by a user's administrator.
enum class Kind
{
    None,
    Numbers,
    Texts
};

struct StoredValues
{
    const char* what;
    Kind machine;
    Kind user;
    std::uint32_t expected; // the first value's number, the others' follow; 0: the defaults

    friend std::ostream& operator<<(std::ostream& stream, const StoredValues& values) { return stream << values.what; }
};

class SettingsOfAProcess : public testing::TestWithParam<StoredValues>
{
protected:
    static constexpr const wchar_t* kNames[] = {L"HTTPConnectionRequestTimeout", L"HTTPNameResolutionTimeout",   L"HTTPSendRequestTimeout",
                                                L"HTTPReceiveResponseTimeout",   L"HTTPDeltaSendRequestTimeout", L"UploadExpiry"};

    // What each use makes of its values: a connection, a delta's connection, and the hours of a chunk's expiry (-1: none).
    static std::vector<std::string> Used()
    {
        const auto session = std::make_shared<WinHttpSession>();
        session->Initialise();
        TraceCapture trace;
        WinHttpConnection().Initialise(L"127.0.0.1", 1, session, 0, 0);
        std::vector<std::string> used = {trace.Messages(EVT_INFO).at(0)};

        ScriptedClient client;
        client.Negotiate();
        constexpr std::uint32_t kDelta = 1;
        std::shared_ptr<IServerAttributes> item = std::make_shared<CServerAttributes>();
        client->UploadFile(L"local", L"/a", item, &kDelta, {}, nullptr);
        used.push_back(client.script.connections.at(0));

        constexpr std::int64_t kOffset = 0;
        std::int64_t length = 0;
        client->ResumableUpload(L"local", L"/a", item, {}, &kOffset, &length, 0, {}, nullptr);
        used.emplace_back("-1");
        for (const std::string& step : client.script.requests.at(1))
            if (const std::string header = "header qd_expiry: "; step.starts_with(header))
                used.back() = std::to_string(HoursUntil(CAttributeTime(step.substr(header.size()))));
        return used;
    }

private:
    static std::int64_t HoursUntil(CAttributeTime time)
    {
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        const std::uint64_t ticks = (std::uint64_t{now.dwHighDateTime} << 32U) | now.dwLowDateTime;
        constexpr std::int64_t kTicksPerHour = 36'000'000'000;
        return (time.GetTicks() - static_cast<std::int64_t>(ticks) + kTicksPerHour / 2) / kTicksPerHour;
    }
};

TEST_P(SettingsOfAProcess, AreReadOnFirstUseAndKept)
{
    RegistryValues values;
    const auto store = [&](Root root, Kind kind, std::uint32_t first) {
        for (std::uint32_t i = 0; i < std::size(kNames); ++i)
            if (kind == Kind::Numbers)
                values.SetNumber(root, kNames[i], first + i);
            else if (kind == Kind::Texts)
                values.SetText(root, kNames[i], L"3000");
    };
    store(Root::Machine, GetParam().machine, 1000);
    store(Root::User, GetParam().user, 2000);
    const auto number = [](std::uint32_t index, std::int32_t defaultValue) {
        return std::to_string(GetParam().expected == 0 ? defaultValue : static_cast<std::int32_t>(GetParam().expected + index));
    };
    const std::vector<std::string> expected = {
        "Calling WinHttpSetTimeouts. CONN:" + number(0, 60000) + ", RES:" + number(1, 0) + ", SEND:" + number(2, 60000) +
            ", RECV:" + number(3, 60000),
        "server:8080 send=" + number(4, 300000) + " receive=" + number(3, 600000),
        number(5, -1),
    };
    EXPECT_EQ(Used(), expected);
    for (const wchar_t* name : kNames)
        values.SetNumber(Root::User, name, 7);
    EXPECT_EQ(Used(), expected) << "a change is seen by the next process";
}

INSTANTIATE_TEST_SUITE_P(Stored, SettingsOfAProcess,
                         testing::Values(StoredValues{"Nowhere", Kind::None, Kind::None, 0},
                                         StoredValues{"ForTheMachine", Kind::Numbers, Kind::None, 1000},
                                         StoredValues{"ForTheUser", Kind::None, Kind::Numbers, 2000},
                                         StoredValues{"ForBoth", Kind::Numbers, Kind::Numbers, 2000},
                                         StoredValues{"AsTextsForTheUser", Kind::None, Kind::Texts, 0},
                                         StoredValues{"AsTextsForTheMachine", Kind::Texts, Kind::None, 0},
                                         StoredValues{"AsTextsForTheUserOnly", Kind::Numbers, Kind::Texts, 1000}),
                         [](const auto& stored) { return stored.param.what; });

} // namespace
