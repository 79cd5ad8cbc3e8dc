// Change-feed actions and folder mappings on the wire: JSON in, records and messages out.

#include "Operations.h"
#include "Replies/FeedParsing.h"
#include "ScriptedTransport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

// Replies with what they are read as; a "!" stands for what cannot be read.
using Replies = std::vector<std::pair<std::string, std::string>>;

template <typename Parse> void ExpectRecords(const Replies& replies, const Parse& parse)
{
    for (auto [reply, expected] : replies)
    {
        TraceCapture trace;
        Caller caller;
        const std::uint32_t count = parse(AsReply(reply), caller);
        EXPECT_EQ(count, caller.actions.size() + caller.mappings.size());
        std::string told = caller.Told();
        for (const std::string& error : trace.Messages(EVT_ERROR))
            told += error.starts_with("JSON library has thrown a runtime_error exception (") ? "!" : error;
        EXPECT_EQ(told, expected) << reply;
    }
}

TEST(FeedParsing, TurnsRepliesIntoActions)
{
    const Replies replies = {
        {R"({"a":"CREATE","m":"/x"})", "1 '/x' ''"},
        {R"({"a":"upload","m":"/\u4e16\ud83d\ude00"})", "2 '/\u4e16\U0001F600' ''"},
        {R"({"a":"move","m":{"from":"/a","to":"/b"}})", "3 '/a' '/b'"},
        {R"({"a":"Move","m":{"to":"/b"}})", "3 '' '/b'"},
        {R"({"a":"move","m":"/a"})", "3 '' ''"},
        {R"({"a":"move","m":{}})", "3 '' ''"},
        {R"({"a":"move"})", "3 '' ''"},
        {R"({"a":"copy","m":"/x"})", "4 '/x' ''"},
        {R"({"a":"rename","m":"/x"})", "5 '/x' ''"},
        {R"({"a":"Delete","m":"/x"})", "6 '/x' ''"},
        {R"({"a":"policy"})", "7 '' ''"},
        {R"({"a":"UPDATE","m":{"from":"/a","to":"/b","name":"n"}})", "8 '/a' '/b'"},
        {R"({"a":"mode","m":{"name":"Docs","mode":"OFFLINE","from":"f"}})", "9 'Docs' 'OFFLINE'"},
        {R"({"a":"rename2","m":"/x"})", "0 '/x' ''"},
        {R"({"a":"pol\u0131cy","m":"/x"})", "0 '/x' ''"},
        {R"({"a":5,"m":6})", "0 '6' ''"},
        {"{}", "0 '' ''"},
        {"null", ""},
        {"[]", ""},
        {"<html>", ""},
        {R"([{"a":"create"},{"contents":[{"a":"copy"},{"a":"copy"}]},null])", "1 '' '', 4 '' '', 4 '' '', 0 '' ''"},
        {R"({"contents":[{"a":"create","m":"/x"},{"a":"delete","m":"/y"}]})", "1 '/x' '', 6 '/y' ''"},
        {R"({"contents":{"contents":{"a":"create","m":"/x"}}})", "1 '/x' ''"},
        {R"({"contents":[],"a":"create"})", ""},
        {R"({"contents":null,"a":"create"})", ""},
        {R"({"contents":[{"a":"create"},5,"text",[1],{"a":["x"]},{"a":"copy","m":{"x":1}},{"a":"copy"}]})", "1 '' '', 4 '' ''!!!!!"},
        {R"({"contents":5})", "!"},
        {std::string(20000, '['), "!"},
    };
    ExpectRecords(replies, [](const ResponseBuffer& reply, Caller& caller) { return GetNotificationsFromResponse(reply, caller.actions); });
}

TEST(FeedParsing, TurnsRepliesIntoMappings)
{
    const std::string a = "'/a' '' '' '' 1 2 2 0";
    const std::string b = "'/b' '' '' '' 1 2 2 0";
    std::string nested = R"({"name":"a"})";
    for (int depth = 0; depth < 900; ++depth)
        nested = R"({"contents":)" + nested + "}";
    const Replies replies = {
        {R"({"name":"Docs","mode":"automatic","status":"timeout","type":"SMB","folder_permissions":"readonly","permissions":"WRITE"})",
         "'/Docs' '' '' 'ROOT_READONLY' 2 1 0 0"},
        {R"({"name":"D\u00fc","description":"\ud83d\ude00","permissions":"write","allow_sharing":true,"type":"WebDAV","mode":"Offline"})",
         "'/D\u00fc' '\U0001F600' '' 'write' 3 2 1 1"},
        {R"({"name":"a","folder_permissions":"WRITE","permissions":"READ","status":"OK","type":"ftp","mode":"manual"})",
         "'/a' '' '' 'READ' 1 2 2 0"},
        // A letter that only some languages take for an "i" is none here.
        {R"({"name":"a","status":"off\u0131ine","mode":"offl\u0131ne","folder_permissions":"READON\u0131Y"})", a},
        {R"({"name":"a","status":"offline"})", "'/a' '' '' '' 1 1 2 0"},
        {R"({"name":"a","status":"Inaccessible","allow_sharing":1})", "'/a' '' '' '' 1 1 2 1"},
        {R"({"name":"a","status":"BAD_credentials","allow_sharing":null})", "'/a' '' '' '' 1 1 2 0"},
        {R"({"name":5,"description":true,"allow_sharing":0.5})", "'/5' 'true' '' '' 1 2 2 1"},
        {"{}", "'/' '' '' '' 1 2 2 0"},
        {"null", ""},
        {R"([{"name":"a"},{"contents":[{"name":"b"},{"name":"a"}]}])", a + ", " + b + ", " + a},
        {R"({"contents":{"name":"a"}})", a},
        {nested, a},
        {R"({"contents":[],"name":"a"})", ""},
        {R"({"contents":null,"name":"a"})", ""},
        {R"({"contents":[{"name":"a"},5,[],{"name":"c","allow_sharing":"yes"},{"name":{"x":1}},{"name":"b"}]})", a + ", " + b + "!!!!"},
        {R"({"contents":"text"})", "!"},
    };
    ScriptedClient client;
    ExpectRecords(replies,
                  [&](const ResponseBuffer& reply, Caller& caller) { return client->GetMappingsFromResponse(reply, caller.mappings); });
}

TEST(FeedParsing, CountsTheRecordsOfEveryDepth)
{
    const Json::Value replies = ParseText(R"([{"contents":[{"name":"a"},5,{"name":"b"}]},{"contents":{"contents":[{}]}},{}])");
    Caller caller;
    EXPECT_EQ(ProcessNotificationJSONArray(replies, caller.actions), 4U);
    EXPECT_EQ(ProcessMappingJSONArray(replies, caller.mappings), 4U);
    std::string none = "[]";
    EXPECT_EQ(GetNotificationsFromResponse(AsReply(none), caller.actions), 0U) << "what was there does not count";
}

} // namespace
