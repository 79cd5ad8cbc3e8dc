// Settings that an administrator stores, and those that a process reads once.

#include "Operations.h"
#include "RegistryValues.h"
#include "Scripted/ScriptedClient.h"
#include "Settings.h"
#include "TextConversion.h"
#include "TraceCapture.h"

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

// In the order in which `Used` shows them.
constexpr const char* kNames[] = {"HTTPConnectionRequestTimeout", "HTTPNameResolutionTimeout",   "HTTPSendRequestTimeout",
                                  "HTTPReceiveResponseTimeout",   "HTTPDeltaSendRequestTimeout", "UploadExpiry"};

// What a delta, a chunk and a question for the mappings make of the settings.
std::string Used()
{
    const TemporaryFolder folder;
    ScriptedClient client;
    client.Negotiate();
    Caller caller;
    caller.local = folder.Write("sent", std::string(100, 'x'));
    Upload(1)(client.Api(), caller);
    const TraceCapture trace;
    Chunk(0, 100, 1)(client.Api(), caller);
    std::string used;
    for (const auto& timeouts : g_script.timeouts)
        for (const int timeout : timeouts)
            used += std::to_string(timeout) + ", ";
    std::string previous;
    for (const auto& [text, modifiers] : g_script.headers)
    {
        const std::string header = ToNarrow(text);
        if (const std::string name = "qd_expiry: "; header.starts_with(name))
        {
            constexpr std::int64_t kFrom1601To1970 = 11'644'473'600;
            const std::int64_t expiry = CAttributeTime(header.substr(name.size())).GetTicks() / 10'000'000 - kFrom1601To1970;
            const bool isLast = header.starts_with(name + "30828-09-14"); // the last day that a time can have
            const std::string minutes = std::to_string((expiry - std::time(nullptr) + 30) / 60) + " minutes, ";
            used += "after " + previous + " expires in " + (isLast ? "the end, " : minutes);
            EXPECT_TRUE(trace.Has(EVT_INFO, "Sending expiry: " + header.substr(name.size())));
        }
        previous = header;
    }
    static_cast<void>(client->GetRemoteFolderMap(caller));
    return used + g_script.requests.at(2);
}

// What is stored for the machine and for the user: nothing, numbers, texts.
using SettingsOfAProcess = testing::TestWithParam<std::tuple<std::string, std::string>>;

TEST_P(SettingsOfAProcess, AreReadOnFirstUseAndKeptButForTheMappingsWait)
{
    RegistryValues values;
    const std::string wait = "OfflineMappointTimeout";
    std::int32_t first = 0; // of the numbers that count
    const auto store = [&](Root root, const std::string& kind, std::int32_t number) {
        if (kind == "Nothing")
            return;
        values.Set(root, wait, kind == "Numbers" ? Json::Value(number - 1) : Json::Value("3000"));
        for (int i = 0; i < static_cast<int>(std::size(kNames)); ++i)
            values.Set(root, kNames[i], kind == "Numbers" ? Json::Value(number + i) : Json::Value("3000"));
        first = kind == "Numbers" ? number : first;
    };
    store(Root::Machine, std::get<0>(GetParam()), 1000);
    store(Root::User, std::get<1>(GetParam()), 2'000'000'000);
    const auto number = [&](std::int32_t index, std::int32_t standard) { return std::to_string(first == 0 ? standard : first + index); };
    const std::string connection = number(1, 0) + ", " + number(0, 60000) + ", ";
    const std::string kept =
        connection + number(4, 300000) + ", " + number(3, 600000) + ", " + connection + number(2, 60000) + ", " + number(3, 60000) + ", " +
        (first == 0 ? "" : "after qd_finish: true expires in " + (first == 1000 ? "60300 minutes, " : std::string("the end, ")));
    const std::string asked = "GET /sync/folders?includeAll=true&timeout=";
    EXPECT_EQ(Used(), kept + asked + number(-1, 30) + " flags=0");
    for (const std::string name : kNames)
        values.Set(Root::User, name, 7);
    values.Set(Root::User, wait, 0xFFFFFFFF);
    EXPECT_EQ(Used(), kept + asked + "-1 flags=0") << "the mappings' wait is read on each call, the others by the next process";
}

const auto kKinds = testing::Values("Nothing", "Numbers", "Texts");
INSTANTIATE_TEST_SUITE_P(Stored, SettingsOfAProcess, testing::Combine(kKinds, kKinds),
                         [](const auto& stored) { return std::get<0>(stored.param) + "And" + std::get<1>(stored.param); });

} // namespace
