// Change-feed actions and folder mappings on the wire: JSON in, records and messages out.

#include "ParsingSupport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

using Texts = std::vector<std::string>;

struct Reply
{
    const char* json;
    Texts records;
    std::size_t errors = 0; // elements that cannot be read
};

template <typename Records, typename Parse> void ExpectRecords(const std::vector<Reply>& replies, const Parse& parse)
{
    for (const Reply& reply : replies)
    {
        TraceCapture trace;
        Records records;
        EXPECT_EQ(parse(ParseText(reply.json), records), reply.records.size()) << reply.json;
        EXPECT_EQ(Describe(records), reply.records) << reply.json;
        EXPECT_EQ(trace.Messages(EVT_ERROR).size(), reply.errors) << reply.json << trace;
        for (const std::string& message : trace.Messages(EVT_ERROR))
            EXPECT_TRUE(message.starts_with("JSON library has thrown a runtime_error exception (")) << message;
    }
}

TEST(FeedParsing, TurnsRepliesIntoActions)
{
    const std::vector<Reply> replies = {
        {R"({"a":"CREATE","m":"/x"})", {"1 '/x' ''"}},
        {R"({"a":"upload","m":"/\u4e16\ud83d\ude00"})", {"2 '/\u4e16\U0001F600' ''"}},
        {R"({"a":"move","m":{"from":"/a","to":"/b"}})", {"3 '/a' '/b'"}},
        {R"({"a":"Move","m":{"to":"/b"}})", {"3 '' '/b'"}},
        {R"({"a":"move","m":"/a"})", {"3 '' ''"}},
        {R"({"a":"move","m":{}})", {"3 '' ''"}},
        {R"({"a":"move","m":["/a"]})", {"3 '' ''"}},
        {R"({"a":"move"})", {"3 '' ''"}},
        {R"({"a":"copy","m":"/x"})", {"4 '/x' ''"}},
        {R"({"a":"rename","m":"/x"})", {"5 '/x' ''"}},
        {R"({"a":"Delete","m":"/x"})", {"6 '/x' ''"}},
        {R"({"a":"policy"})", {"7 '' ''"}},
        {R"({"a":"UPDATE","m":{"from":"/a","to":"/b","name":"n"}})", {"8 '/a' '/b'"}},
        {R"({"a":"mode","m":{"name":"Docs","mode":"OFFLINE","from":"f"}})", {"9 'Docs' 'OFFLINE'"}},
        {R"({"a":"rename2","m":"/x"})", {"0 '/x' ''"}},
        {R"({"a":"pol\u0131cy","m":"/x"})", {"0 '/x' ''"}},
        {R"({"a":5,"m":6})", {"0 '6' ''"}},
        {"{}", {"0 '' ''"}},
        {"null", {"0 '' ''"}},
        {R"({"contents":[{"a":"create","m":"/x"},{"a":"delete","m":"/y"}]})", {"1 '/x' ''", "6 '/y' ''"}},
        {R"({"contents":{"a":"create","m":"/x"}})", {"1 '/x' ''"}},
        {R"({"contents":{"contents":[{"a":"create","m":"/x"}]}})", {"1 '/x' ''"}},
        {R"({"contents":[{"contents":[{"a":"create","m":"/x"}]},{"a":"copy"}]})", {"1 '/x' ''", "4 '' ''"}},
        {R"({"contents":[],"a":"create"})", {}},
        {R"({"contents":null,"a":"create"})", {}},
        {R"({"contents":[{"a":"create","m":"/x"},5,"text",[1],{"a":["x"]},{"a":"copy","m":{"x":1}},{"a":"copy","m":"/y"}]})",
         {"1 '/x' ''", "4 '/y' ''"},
         5},
        {R"({"contents":5})", {}, 1},
    };
    ExpectRecords<Actions>(replies, &CNativeHttp::ProcessNotificationJSONDictionary);
    ExpectRecords<Actions>(
        {{R"([{"a":"create"},{"contents":[{"a":"copy"},{"a":"copy"}]}])", {"1 '' ''", "4 '' ''", "4 '' ''"}}, {"[]", {}}},
        &CNativeHttp::ProcessNotificationJSONArray);
}

TEST(FeedParsing, TurnsRepliesIntoMappings)
{
    const std::string a = "'/a' '' '' '' 1 2 2 0";
    const std::string b = "'/b' '' '' '' 1 2 2 0";
    const std::vector<Reply> replies = {
        {R"({"name":"Docs","mode":"automatic","status":"timeout","type":"SMB","folder_permissions":"readonly","permissions":"WRITE"})",
         {"'/Docs' '' '' 'ROOT_READONLY' 2 1 0 0"}},
        {R"({"name":"D\u00fc","description":"\ud83d\ude00","permissions":"write","allow_sharing":true,"type":"WebDAV","mode":"Offline"})",
         {"'/D\u00fc' '\U0001F600' '' 'write' 3 2 1 1"}},
        {R"({"name":"a","folder_permissions":"WRITE","permissions":"READ","status":"OK","type":"ftp","mode":"manual"})",
         {"'/a' '' '' 'READ' 1 2 2 0"}},
        // A letter that only some languages take for an "i" is none here.
        {R"({"name":"a","status":"off\u0131ine","mode":"offl\u0131ne","folder_permissions":"READON\u0131Y"})", {a}},
        {R"({"name":"a","status":"offline"})", {"'/a' '' '' '' 1 1 2 0"}},
        {R"({"name":"a","status":"Inaccessible","allow_sharing":1})", {"'/a' '' '' '' 1 1 2 1"}},
        {R"({"name":"a","status":"BAD_credentials","allow_sharing":null})", {"'/a' '' '' '' 1 1 2 0"}},
        {R"({"name":5,"description":true,"allow_sharing":0.5})", {"'/5' 'true' '' '' 1 2 2 1"}},
        {"{}", {"'/' '' '' '' 1 2 2 0"}},
        {R"({"contents":[{"name":"a"},{"name":"b"}]})", {a, b}},
        {R"({"contents":{"name":"a"}})", {a}},
        {R"({"contents":{"contents":[{"name":"a"}]}})", {a}},
        {R"({"contents":[],"name":"a"})", {}},
        {R"({"contents":null,"name":"a"})", {}},
        {R"({"contents":[{"name":"a"},5,[],{"name":"c","allow_sharing":"yes"},{"name":{"x":1}},{"name":"b"}]})", {a, b}, 4},
        {R"({"contents":"text"})", {}, 1},
    };
    ExpectRecords<Mappings>(replies, &CNativeHttp::ProcessMappingJSONDictionary);
    ExpectRecords<Mappings>({{R"([{"name":"a"},{"contents":[{"name":"b"},{"name":"a"}]}])", {a, b, a}}, {"[]", {}}},
                            &CNativeHttp::ProcessMappingJSONArray);
}

TEST(FeedParsing, TracesEachAction)
{
    TraceCapture trace;
    Actions actions;
    CNativeHttp::ProcessNotificationJSONDictionary(ParseText(R"({"contents":[{"a":"Create","m":"/x"},
        {"a":"move","m":{"from":"/a","to":"/b"}},{"a":"mode","m":"/y"},{"a":[1]},{"a":"?","m":"/z"}]})"),
                                                   actions);
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
}

} // namespace
