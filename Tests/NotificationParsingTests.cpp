#include "NotificationAction.h"
#include "ParsingSupport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace
{

// Owns what a parser appends, as its callers do.
class Actions
{
public:
    std::uint32_t Read(const std::string& json) { return CNativeHttp::ProcessNotificationJSONDictionary(ParseText(json), m_actions); }
    std::uint32_t ReadArray(const std::string& json) { return CNativeHttp::ProcessNotificationJSONArray(ParseText(json), m_actions); }

    Actions() = default;
    ~Actions()
    {
        for (const CNotificationAction* action : m_actions)
            delete action;
    }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;

    [[nodiscard]] std::vector<std::string> Describe() const
    {
        std::vector<std::string> texts;
        for (const CNotificationAction* action : m_actions)
            texts.push_back(std::to_string(static_cast<std::int32_t>(action->Type)) + " '" + ToNarrow(action->Value) + "' '" +
                            ToNarrow(action->Value2) + "'");
        return texts;
    }

private:
    std::list<CNotificationAction*> m_actions;
};

using Texts = std::vector<std::string>;

} // namespace

TEST(NotificationParsingTests, Entries)
{
    const struct
    {
        const char* json;
        const char* action;
    } cases[] = {
        {R"({"a":"CREATE","m":"/x"})", "1 '/x' ''"},
        {R"({"a":"upload","m":"/\u4e16\ud83d\ude00"})", "2 '/\u4e16\U0001F600' ''"},
        {R"({"a":"move","m":{"from":"/a","to":"/b"}})", "3 '/a' '/b'"},
        {R"({"a":"Move","m":{"to":"/b"}})", "3 '' '/b'"},
        {R"({"a":"move","m":"/a"})", "3 '' ''"},
        {R"({"a":"move","m":{}})", "3 '' ''"},
        {R"({"a":"move","m":["/a"]})", "3 '' ''"},
        {R"({"a":"move"})", "3 '' ''"},
        {R"({"a":"copy","m":"/x"})", "4 '/x' ''"},
        {R"({"a":"rename","m":"/x"})", "5 '/x' ''"},
        {R"({"a":"Delete","m":"/x"})", "6 '/x' ''"},
        {R"({"a":"policy"})", "7 '' ''"},
        {R"({"a":"UPDATE","m":{"from":"/a","to":"/b","name":"n"}})", "8 '/a' '/b'"},
        {R"({"a":"mode","m":{"name":"Docs","mode":"OFFLINE"}})", "9 'Docs' 'OFFLINE'"},
        {R"({"a":"rename2","m":"/x"})", "0 '/x' ''"},
        {R"({"a":5,"m":6})", "0 '6' ''"},
        {"{}", "0 '' ''"},
        {"null", "0 '' ''"},
    };
    for (const auto& each : cases)
    {
        Actions actions;
        EXPECT_EQ(actions.Read(each.json), 1U) << each.json;
        EXPECT_EQ(actions.Describe(), Texts{each.action}) << each.json;
    }
}

TEST(NotificationParsingTests, Containers)
{
    const struct
    {
        const char* json;
        Texts actions;
    } cases[] = {
        {R"({"contents":[{"a":"create","m":"/x"},{"a":"delete","m":"/y"}]})", {"1 '/x' ''", "6 '/y' ''"}},
        {R"({"contents":{"a":"create","m":"/x"}})", {"1 '/x' ''"}},
        {R"({"contents":{"contents":[{"a":"create","m":"/x"}]}})", {"1 '/x' ''"}},
        {R"({"contents":[{"contents":[{"a":"create","m":"/x"}]},{"a":"copy"}]})", {"1 '/x' ''", "4 '' ''"}},
        {R"({"contents":[],"a":"create"})", {}},
        {R"({"contents":null,"a":"create"})", {}},
        // An element that is no entry is left out.
        {R"({"contents":[{"a":"create","m":"/x"},5,"text",[1],{"a":["x"]},{"a":"copy","m":{"x":1}},{"a":"copy","m":"/y"}]})",
         {"1 '/x' ''", "4 '/y' ''"}},
        {R"({"contents":5})", {}},
    };
    for (const auto& each : cases)
    {
        Actions actions;
        EXPECT_EQ(actions.Read(each.json), each.actions.size()) << each.json;
        EXPECT_EQ(actions.Describe(), each.actions) << each.json;
    }
    Actions actions;
    EXPECT_EQ(actions.ReadArray(R"([{"a":"create"},{"contents":[{"a":"copy"},{"a":"copy"}]}])"), 3U);
}

TEST(NotificationParsingTests, Messages)
{
    TraceCapture trace;
    Actions actions;
    actions.Read(R"({"contents":[{"a":"Create","m":"/x"},{"a":"move","m":{"from":"/a","to":"/b"}},
                                 {"a":"mode","m":"/y"},{"a":[1]},{"a":"?","m":"/z"}]})");
    const Texts info = {
        "Creating notification action: type: 'Create', value: '/x'",
        "There are now 1 notification actions",
        "Creating notification action: type: 'move', value: '/a', value2: '/b'",
        "There are now 2 notification actions",
        "Creating notification action: type: 'mode', value: '', value2: ''",
        "There are now 3 notification actions",
        "Creating notification action: type: '?', value: '/z'",
        "There are now 4 notification actions",
    };
    EXPECT_EQ(trace.Messages(EVT_INFO), info);
    ASSERT_EQ(trace.Messages(EVT_ERROR).size(), 1U);
    EXPECT_TRUE(trace.Messages(EVT_ERROR)[0].starts_with("JSON library has thrown a runtime_error exception (")) << trace;
}
