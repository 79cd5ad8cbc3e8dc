#include "Attributes.h"
#include "Operations.h"
#include "Replies/ItemParsing.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

const std::string kTimes = R"("creation_time":"2015-03-02T10:20:30.1239999Z","modification_time":"2016-02-29T23:59:59.5Z")";
const std::string kRest = kTimes + R"(,"size":7,"attributes":32,"permissions":"WRITE")";
const std::string kThrown = "JSON library has thrown a runtime_error exception (";

std::string ShowTimes(const IServerAttributes& record)
{
    std::string times;
    for (const CAttributeTime time :
         {record.GetCreationTime(), record.GetLastAccessTime(), record.GetLastWriteTime(), record.GetChangeTime()})
        times += (times.empty() ? "" : " ") + ToNarrow(time.ToString());
    return times;
}

// What the groups of Items.json show of an item.
const std::map<std::string, std::function<std::string(const IServerAttributes&)>> kShown = {
    {"names", [](const IServerAttributes& record) { return record.GetRevision() + "|" + ToNarrow(record.GetName()); }},
    {"sizes", [](const IServerAttributes& record) { return std::to_string(record.GetSize()); }},
    {"attributes", [](const IServerAttributes& record) { return record.GetAttributesStringA(); }},
    {"times", ShowTimes},
    {"permissions", [](const IServerAttributes& record) {
         return std::string(record.IsReadOnly() ? "read-only" : "writable") + (record.IsFolderReadOnly() ? " in read-only" : "");
     }}};

} // namespace

TEST(ItemParsingTests, ItemsAreReadAsItemsJsonSays)
{
    const Json::Value groups = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Items.json");
    ASSERT_EQ(groups.size(), kShown.size());
    for (const auto& [group, show] : kShown)
    {
        ASSERT_FALSE(groups[group]["cases"].empty()) << group;
        for (const Json::Value& each : groups[group]["cases"])
        {
            Json::Value item = groups[group]["shared"];
            for (const std::string& member : each[0].getMemberNames())
                item[member] = each[0][member];
            TraceCapture trace;
            ServerItemList list;
            const std::uint32_t count = ProcessJSONDictionary(item, list, false);
            EXPECT_EQ(count, list.size());
            std::string read = list.empty() ? "dropped" : show(*list.front());
            for (const std::string& error : trace.Messages(EVT_ERROR))
                read += "; " + error;
            EXPECT_EQ(read, each[1].asString()) << group << ": " << each[0];
        }
    }
}

TEST(ItemParsingTests, AValueThatCannotBeConvertedEndsAnArrayAndThrowsForASingleItem)
{
    const std::string good = R"({"name":"a",)" + kRest + "}";
    for (const std::string bad : {"5", "\"text\"", "true", "[1]", R"({"attributes":-1,)", R"({"attributes":4294967296,)",
                                  R"({"attributes":1e300,)", R"({"directory":"yes",)", R"({"directory":[],)", R"({"name":{"a":1},)",
                                  R"({"revision":[1],)", R"({"orca_path":{"a":1},)", R"({"folder_permissions":[1],"attributes":1,)"})
    {
        const std::string element = bad[0] == '{' ? bad + R"("size":1,)" + kTimes + "}" : bad;
        TraceCapture trace;
        ServerItemList list;
        const Json::Value array = ParseText("[" + good + "," + element + "," + good + "]");
        EXPECT_EQ(ProcessJSONArray(array, list, false), 1U) << element;
        ASSERT_EQ(trace.Messages(EVT_ERROR).size(), 1U) << element << trace;
        EXPECT_TRUE(trace.Messages(EVT_ERROR)[0].starts_with(kThrown)) << trace;
        EXPECT_THROW(ProcessJSONDictionary(array[1], list, false), Json::Exception) << element;
        EXPECT_EQ(list.size(), 1U) << element;
    }
}

TEST(ItemExtractionTests, OneParseGivesTheReplysItemsAndTheReplyAsAnItem)
{
    const auto item = [](const std::string& name) { return R"("name":")" + name + "\"," + kRest; };
    const std::string a = "{" + item("a") + "}";
    const std::string b = "{" + item("b") + "}";
    const std::string negative = R"("attributes":-1,"size":7,)" + kTimes;
    const std::pair<std::string, std::string> cases[] = {
        {"{" + item("d") + R"(,"contents":[)" + a + "," + b + "]}", "a b in d"},
        {"{" + item("d") + R"(,"contents":[]})", "in d"},
        {"{" + item("d") + R"(,"contents":null,"document_info":)" + a + "}", "in d"},
        {R"({"contents":[)" + a + R"(,{"name":"dropped"},)" + b + "]}", "a b "},
        {R"({"contents":[)" + a + R"(],"document_info":)" + b + "}", "a "},
        {R"({"contents":)" + a + "}", "a "},
        {R"({"document_info":)" + a + "}", "a "},
        {R"({"document_info":[)" + a + "," + b + "]}", "a b "},
        {a, "in a"},
        {"{" + item("a\xff") + "}", "in a\ufffd"},
        {"[" + a + "," + b + "]", "in a b"},
        {R"([{"contents":[)" + a + "]},{\"document_info\":" + b + "}]", "a b "},
        {"{}", ""},
        {"null", ""},
        {"<html>", ""},
        {std::string("\0\0\0", 3), ""},
        // What the JSON library throws ends the extraction.
        {"{" + negative + "}", "thrown"},
        {R"({"contents":[)" + a + "]," + negative + "}", "a thrown"},
        {R"({"contents":5,)" + kRest + "}", "thrown"},
        {"5", "thrown"},
        {std::string(10000, '['), "thrown"},
    };
    for (const auto& [reply, expected] : cases)
    {
        SCOPED_TRACE(reply.substr(0, 200));
        TraceCapture trace;
        ServerItemList children;
        ServerItemList self;
        std::string text = reply;
        const std::uint32_t count = ExtractAttributes(AsReply(text), children, self);
        EXPECT_EQ(count, children.size() + self.size());
        std::string extracted;
        for (const auto& child : children)
            extracted += ToNarrow(child->GetName()) + " ";
        for (const auto& record : self)
            extracted += (record == self.front() ? "in " : " ") + ToNarrow(record->GetName());
        for (const std::string& error : trace.Messages(EVT_ERROR))
            extracted += error.starts_with(kThrown) ? "thrown" : "";
        EXPECT_EQ(extracted, expected) << trace;
        EXPECT_EQ(ExtractSingleItem(AsReply(text)) != nullptr, count == 1);
    }
    ServerItemList items;
    EXPECT_EQ(ExtractAttributes({}, items, items), 0U);
}
