// Settings as an administrator stores them, and the values that a process reads once.

#include "ParsingSupport.h"
#include "RegistryValues.h"
#include "ScriptedTransport.h"
#include "Settings.h"
#include "TextConversion.h"
#include "TransferSupport.h"
#include "WinHttpImpl.h"

#include <ctime>

namespace
{

using Root = RegistryValues::Root;

TEST(Settings, AreTakenFromTheFirstPlaceThatHasOneOfTheType)
{
    RegistryValues values;
    const auto read = [](const wchar_t* user = L"") { return Settings::ReadNumber(L"Value", 5, user); };
    EXPECT_EQ(read(), 5);
    values.Set(Root::Machine, "Value", "6");
    EXPECT_EQ(read(), 5);
    values.Set(Root::User, "Value", "7");
    values.Set(Root::Machine, "Value", 1);
    EXPECT_EQ(read(), 1) << "a text is passed over";
    EXPECT_EQ(ToNarrow(Settings::ReadText(L"Value", L"default")), "7");
    EXPECT_TRUE(Settings::ReadTextList(L"Value").empty());
    values.Set(Root::User, "Value", 2);
    EXPECT_EQ(read(L"S-1-5-21-7"), 2) << "a user without the value is passed over";
    values.Set(Root::OtherUser, "Value", 3);
    EXPECT_EQ(read(L"S-1-5-21-7"), 3);
    EXPECT_EQ(read(), 2);

    std::wstring places = Settings::ReadRaw(L"Value", REG_DWORD).place.Text();
    for (const auto& place : Settings::SearchList(L"S-1-5-21-7"))
        places += L" " + place.Text();
    EXPECT_EQ(ToNarrow(places), R"(HKEY_CURRENT_USER\Software\Ostvalen\Quendra HKEY_USERS\S-1-5-21-7\Software\Ostvalen\Quendra )"
                                R"(HKEY_CURRENT_USER\Software\Ostvalen\Quendra HKEY_LOCAL_MACHINE\Software\Ostvalen\Quendra)");
}

TEST(Settings, OfEachTypeAreRead)
{
    RegistryValues values;
    values.Set(Root::User, "Zero", 0);
    values.Set(Root::User, "Large", 0xFFFFFFFF);
    values.Set(Root::User, "Text", "\u00E9 \u20AC");
    values.Set(Root::User, "Expand", ParseText(R"({"type":"REG_EXPAND_SZ","data":"%HOME%"})"));
    values.Set(Root::User, "List", ParseText(R"(["one","two"])"));
    EXPECT_FALSE(Settings::ReadFlag(L"Zero", true));
    EXPECT_TRUE(Settings::ReadFlag(L"Large", false));
    EXPECT_TRUE(Settings::ReadFlag(L"Missing", true));
    EXPECT_EQ(Settings::ReadNumber(L"Large", 0), -1);
    EXPECT_TRUE(Settings::ReadText(L"Text", L"") == L"\u00E9 \u20AC");
    EXPECT_TRUE(Settings::ReadText(L"Expand", L"") == L"%HOME%") << "not expanded";
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
    values.Set(Root::Machine, "OfflineMappointTimeout", 0xFFFFFFFF);
    EXPECT_EQ(asked(), request + "-1 flags=0") << "passed on as it is";
    values.Set(Root::User, "OfflineMappointTimeout", 0);
    EXPECT_EQ(asked(), request + "0 flags=0");
}

// What a machine's and a user's administrator stored of the values that a process reads once: nothing, numbers, texts.
using Stored = std::tuple<std::string, std::string>;

class SettingsOfAProcess : public testing::TestWithParam<Stored>
{
protected:
    static constexpr const char* kNames[] = {"HTTPConnectionRequestTimeout", "HTTPNameResolutionTimeout",   "HTTPSendRequestTimeout",
                                             "HTTPReceiveResponseTimeout",   "HTTPDeltaSendRequestTimeout", "UploadExpiry"};

    // What a connection, a delta's connection and a chunk make of the values.
    static std::vector<std::string> Used()
    {
        const auto session = std::make_shared<WinHttpSession>();
        session->Initialise();
        WinHttpConnection().Initialise(L"127.0.0.1", 1, session, 0, 0);
        std::vector<std::string> used;
        for (const auto option :
             {WINHTTP_OPTION_CONNECT_TIMEOUT, WINHTTP_OPTION_RESOLVE_TIMEOUT, WINHTTP_OPTION_SEND_TIMEOUT, WINHTTP_OPTION_RECEIVE_TIMEOUT})
        {
            int timeout = -1;
            DWORD length = sizeof timeout;
            session->QueryOption(static_cast<DWORD>(option), &timeout, length);
            used.push_back(std::to_string(timeout));
        }

        ScriptedClient client;
        client.Negotiate();
        Caller caller;
        Upload(1)(client.Api(), caller);
        used.push_back(client.script.connections.at(0));
        Chunk(0, 9)(client.Api(), caller);
        for (const std::string& step : client.script.requests.at(1))
            if (const std::string header = "header qd_expiry: "; step.starts_with(header))
            {
                constexpr std::int64_t kFrom1601To1970 = 11'644'473'600;
                const std::int64_t expiry = CAttributeTime(step.substr(header.size())).GetTicks() / 10'000'000 - kFrom1601To1970;
                used.push_back("expires in " + std::to_string((expiry - std::time(nullptr) + 30) / 60) + " minutes");
            }
        return used;
    }
};

TEST_P(SettingsOfAProcess, AreReadOnFirstUseAndKept)
{
    RegistryValues values;
    std::int32_t first = 0; // of the numbers that count
    const auto store = [&](Root root, const std::string& kind, std::int32_t number) {
        for (int i = 0; i < static_cast<int>(std::size(kNames)) && kind != "Nothing"; ++i)
            values.Set(root, kNames[i], kind == "Numbers" ? Json::Value(number + i) : Json::Value("3000"));
        first = kind == "Numbers" ? number : first;
    };
    store(Root::Machine, std::get<0>(GetParam()), 1000);
    store(Root::User, std::get<1>(GetParam()), 2000);
    const auto number = [&](std::int32_t index, std::int32_t standard) { return std::to_string(first == 0 ? standard : first + index); };
    std::vector<std::string> expected = {number(0, 60000), number(1, 0), number(2, 60000), number(3, 60000),
                                         "server:8080 send=" + number(4, 300000) + " receive=" + number(3, 600000)};
    if (first != 0)
        expected.push_back("expires in " + std::to_string((first + 5) * 60) + " minutes");
    EXPECT_EQ(Used(), expected);
    for (const char* name : kNames)
        values.Set(Root::User, name, 7);
    EXPECT_EQ(Used(), expected) << "a change is seen by the next process";
}

const auto kKinds = testing::Values("Nothing", "Numbers", "Texts");
INSTANTIATE_TEST_SUITE_P(Stored, SettingsOfAProcess, testing::Combine(kKinds, kKinds),
                         [](const auto& stored) { return std::get<0>(stored.param) + "And" + std::get<1>(stored.param); });

} // namespace
