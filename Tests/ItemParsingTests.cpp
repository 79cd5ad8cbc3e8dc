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
const std::string kCreated = "2015-03-02T10:20:30.123Z";
const std::string kModified = " 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z";
const std::string kNumbers = R"("size":7,"attributes":32)";
const std::string kWritable = R"("permissions":"WRITE")";
const std::string kRest = kTimes + "," + kNumbers + "," + kWritable;
const std::string kThrown = "JSON library has thrown a runtime_error exception (";

// Members, with what the item is read as, and the errors.
using Items = std::vector<std::pair<std::string, std::string>>;

// Reads items of the members that a case is about and of those that all its cases share.
template <typename Show> void ExpectItems(const std::string& shared, const Show& show, const Items& items)
{
    for (const auto& [members, expected] : items)
    {
        TraceCapture trace;
        ServerItemList list;
        const std::string json = "{" + members + (members.empty() ? "" : ",") + shared + "}";
        const std::uint32_t count = ProcessJSONDictionary(ParseText(json), list, false);
        EXPECT_EQ(count, list.size());
        std::string read = list.empty() ? "dropped" : show(*list.front());
        for (const std::string& error : trace.Messages(EVT_ERROR))
            read += "; " + error;
        EXPECT_EQ(read, expected) << members;
    }
}

} // namespace

TEST(ItemParsingTests, NamesAndRevisions)
{
    const auto show = [](const IServerAttributes& record) { return record.GetRevision() + "|" + ToNarrow(record.GetName()); };
    ExpectItems(kRest, show,
                {
                    {"", "|"},
                    {R"("name":"","orca_path":"/a/b/c.txt")", "|c.txt"},
                    {R"("orca_path":"C:\\x\\y")", "|y"},
                    {R"("orca_path":"a\\b/c")", "|b/c"},
                    {R"("orca_path":"none")", "|"},
                    {R"("orca_path":"/a/")", "|"},
                    {R"("name":"folder//","revision":"r\u00e9v")", "r\u00e9v|folder"},
                    {R"("name":"///")", "|"},
                    {R"("name":"/a/\\")", "|/a/\\"},
                    // No character is refused.
                    {R"("name":"\u0001 *:<>?|\"\\")", "|\x01 *:<>?|\"\\"},
                    {R"("name":"a\u0000b")", "|" + std::string("a\0b", 3)},
                    // Text members take numbers and booleans; null is no text.
                    {R"("name":5,"revision":true)", "true|5"},
                    // Every plane; what is no Unicode becomes the replacement character and harms nothing else.
                    {"\"name\":\"\u0416\u4e16\U0001F600\U0010FFFF\"", "|\u0416\u4e16\U0001F600\U0010FFFF"},
                    {R"("name":"\ud83d\ud83d\ude00")", "|\ufffd\U0001F600"},
                    {"\"name\":\"a\xff\"", "|a\ufffd"},
                });
}

TEST(ItemParsingTests, Sizes)
{
    const auto show = [](const IServerAttributes& record) { return std::to_string(record.GetSize()); };
    const std::string bad = "0; Invalid or missing 'size' in server response (type is ";
    ExpectItems(R"("attributes":32,)" + kTimes, show,
                {
                    {R"("size":1.9)", "1"},
                    {R"("size":-1.9)", "-1"},
                    {R"("size":9007199254740993)", "9007199254740992"},
                    {R"("size":9223372036854774784)", "9223372036854774784"},
                    {R"("size":9223372036854775807)", "-9223372036854775808"}, // rounded up to one too many
                    {R"("size":-1e300)", "-9223372036854775808"},
                    {R"("size":"12")", bad + "4)"},
                    {R"("size":null)", bad + "0)"},
                    {"", bad + "4)"},
                });
}

TEST(ItemParsingTests, AttributeBits)
{
    const auto show = [](const IServerAttributes& record) { return record.GetAttributesStringA(); };
    const std::string bad = "; Invalid or missing 'attributes' in server response (type is ";
    ExpectItems(R"("size":7,)" + kTimes, show,
                {
                    {R"("attributes":33.9)", "33"},
                    {R"("attributes":4294967295)", "4294967295"},
                    {R"("attributes":32,"directory":true)", "48"},
                    {R"("attributes":32,"directory":1)", "32"}, // a folder by its number, but not by its type
                    {R"("directory":true)", "16" + bad + "4)"},
                    {R"("directory":1)", "16" + bad + "4)"},
                    {R"("directory":null,"attributes":null)", "128" + bad + "0)"},
                    {R"("attributes":true)", "128" + bad + "5)"},
                    {R"("attributes":[1])", "128" + bad + "6)"},
                });
}

TEST(ItemParsingTests, Times)
{
    const auto show = [](const IServerAttributes& record) {
        std::wstring times;
        for (const CAttributeTime time :
             {record.GetCreationTime(), record.GetLastAccessTime(), record.GetLastWriteTime(), record.GetChangeTime()})
            times += (times.empty() ? L"" : L" ") + time.ToString();
        return ToNarrow(times);
    };
    const std::string created = R"("creation_time":"2015-03-02T10:20:30.1239999Z")";
    const std::string modified = R"("modification_time":"2016-02-29T23:59:59.5Z")";
    const std::string bad = "; Invalid or missing 'creation_time' in server response.";
    const std::string noTime = "; Error: [2015-01-01T00:00:00Z] is not a valid time";
    const std::string empty = "; Error: [] is not a valid time";
    ExpectItems(kNumbers, show,
                {
                    // Another type is tolerated, also for the modification time, whose message speaks of the creation.
                    {modified + R"(,"creation_time":5)", "INVALID" + kModified + bad},
                    {created + R"(,"modification_time":null)", kCreated + " INVALID INVALID INVALID" + bad},
                    // A text that is no time drops the item, and so does a missing one.
                    {modified + R"(,"creation_time":"2015-01-01T00:00:00Z")", "dropped" + noTime},
                    {modified, "dropped" + empty},
                    {created + R"(,"modification_time":"2015-01-01T00:00:00Z")", "dropped" + noTime + noTime + noTime},
                    {created, "dropped" + empty + empty + empty},
                    // An impossible date is a time: the start of the scale.
                    {modified + R"(,"creation_time":"2015-02-30T00:00:00.5Z")", "1601-01-01T00:00:00.000Z" + kModified},
                });
}

TEST(ItemParsingTests, Permissions)
{
    const auto show = [](const IServerAttributes& record) {
        return std::string(record.IsReadOnly() ? "read-only" : "writable") + (record.IsFolderReadOnly() ? " in read-only" : "");
    };
    ExpectItems(kTimes + "," + kNumbers, show,
                {
                    {"", "read-only in read-only"},
                    {R"("permissions":"wRite")", "writable"},
                    {R"("permissions":"WRITE ")", "read-only in read-only"},
                    {R"("permissions":"WR\u0131TE")", "read-only in read-only"},
                    {R"("permissions":null)", "writable"},
                    {R"("permissions":["READ"])", "writable"},
                    {R"("permissions":"WRITE","folder_permissions":"READ")", "writable in read-only"},
                    {R"("permissions":"READ","folder_permissions":"write")", "read-only"},
                    {R"("permissions":"WRITE","folder_permissions":null)", "writable"},
                    {R"("permissions":"WRITE","folder_permissions":true)", "writable in read-only"},
                });
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
