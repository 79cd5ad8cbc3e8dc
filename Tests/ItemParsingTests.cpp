#include "ItemExtraction.h"
#include "ParsingSupport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace
{

using Texts = std::vector<std::string>;

// What every item of the tables has beside the members under test.
const std::string kTimes = R"("creation_time":"2015-03-02T10:20:30.1239999Z","modification_time":"2016-02-29T23:59:59.5Z")";
const std::string kNumbers = R"("size":7,"attributes":32)";
const std::string kRest = kTimes + "," + kNumbers + R"(,"permissions":"WRITE")";

const std::string kTimesRead = " 2015-03-02T10:20:30.123Z 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z ";
const std::string kNoName = "'' '' ";
const std::string kRestRead = "32 7" + kTimesRead + "--";

std::string Item(const std::string& members)
{
    return "{" + members + "}";
}

Texts DescribeAll(const ServerItemList& list)
{
    Texts texts;
    for (const auto& record : list)
        texts.push_back(Describe(*record));
    return texts;
}

const std::string kBadSize = "Invalid or missing 'size' in server response (type is ";
const std::string kBadAttributes = "Invalid or missing 'attributes' in server response (type is ";
const std::string kBadTime = "Invalid or missing 'creation_time' in server response.";

struct ItemCase
{
    std::string members;
    Texts records;
    Texts errors;
};

void ExpectItems(const std::vector<ItemCase>& cases)
{
    for (const ItemCase& each : cases)
    {
        TraceCapture trace;
        ServerItemList list;
        EXPECT_EQ(CNativeHttp::ProcessJSONDictionary(ParseText(Item(each.members)), list, false), each.records.size()) << each.members;
        EXPECT_EQ(DescribeAll(list), each.records) << each.members;
        EXPECT_EQ(trace.Messages(EVT_ERROR), each.errors) << each.members;
    }
}

struct Extracted
{
    std::uint32_t count = 0;
    Texts children;
    Texts self;
    Texts errors;
};

Extracted Extract(std::string reply)
{
    TraceCapture trace;
    ServerItemList children;
    ServerItemList self;
    const std::uint32_t count = ExtractAttributes(AsReply(reply), children, self);
    return {count, DescribeAll(children), DescribeAll(self), trace.Messages(EVT_ERROR)};
}

std::string Nested(std::size_t depth, const std::string& open, const std::string& close)
{
    std::string text;
    for (std::size_t level = 0; level < depth; ++level)
        text += open;
    for (std::size_t level = 0; level < depth; ++level)
        text += close;
    return text;
}

} // namespace

TEST(ItemParsingTests, NamesAndRevisions)
{
    ExpectItems({
        {R"("name":"a.txt","revision":"r\u00e9v",)" + kRest, {"'r\u00e9v' 'a.txt' " + kRestRead}, {}},
        {kRest, {kNoName + kRestRead}, {}},
        {R"("name":"","orca_path":"/a/b/c.txt",)" + kRest, {"'' 'c.txt' " + kRestRead}, {}},
        {R"("orca_path":"C:\\x\\y",)" + kRest, {"'' 'y' " + kRestRead}, {}},
        {R"("orca_path":"a\\b/c",)" + kRest, {"'' 'b/c' " + kRestRead}, {}},
        {R"("orca_path":"/a/",)" + kRest, {kNoName + kRestRead}, {}},
        {R"("name":"folder//",)" + kRest, {"'' 'folder' " + kRestRead}, {}},
        // No character is refused.
        {R"("name":"\u0001 *:<>?|\"\\",)" + kRest, {"'' '\x01 *:<>?|\"\\' " + kRestRead}, {}},
        {R"("name":"a\u0000b",)" + kRest, {"'' '" + std::string("a\0b", 3) + "' " + kRestRead}, {}},
        // Text members take numbers and booleans; null is no text.
        {R"("name":5,"revision":true,)" + kRest, {"'true' '5' " + kRestRead}, {}},
        {R"("name":null,"revision":null,)" + kRest, {kNoName + kRestRead}, {}},
        // Every plane; what is no Unicode becomes the replacement character and harms nothing else.
        {"\"name\":\"\u0416\u4e16\U0001F600\U0010FFFF\"," + kRest, {"'' '\u0416\u4e16\U0001F600\U0010FFFF' " + kRestRead}, {}},
        {R"("name":"\ud83d\ud83d\ude00\udE00\\ud83d",)" + kRest, {"'' '\ufffd\U0001F600\ufffd\\ud83d' " + kRestRead}, {}},
        {"\"name\":\"a\xff\"," + kRest, {"'' 'a\ufffd' " + kRestRead}, {}},
        {"\"name\":\"" + std::string(32000, 'n') + "\"," + kRest, {"'' '" + std::string(32000, 'n') + "' " + kRestRead}, {}},
    });
}

TEST(ItemParsingTests, SizesAndAttributeBits)
{
    const auto size = [](const std::string& value) { return "\"size\":" + value + R"(,"attributes":32,"permissions":"WRITE",)" + kTimes; };
    const auto sizeRead = [](const std::string& value) { return Texts{kNoName + "32 " + value + kTimesRead + "--"}; };
    const auto bits = [](const std::string& members) { return members + R"("size":7,"permissions":"WRITE",)" + kTimes; };
    const auto bitsRead = [](const std::string& value) { return Texts{kNoName + value + " 7" + kTimesRead + "--"}; };
    ExpectItems({
        {size("1.9"), sizeRead("1"), {}},
        {size("-1.9"), sizeRead("-1"), {}},
        {size("9007199254740993"), sizeRead("9007199254740992"), {}},
        {size("9223372036854774784"), sizeRead("9223372036854774784"), {}},
        {size("9223372036854775807"), sizeRead("-9223372036854775808"), {}}, // rounded up to one too many
        {size("1e300"), sizeRead("-9223372036854775808"), {}},
        {size("-1e300"), sizeRead("-9223372036854775808"), {}},
        {size("\"12\""), sizeRead("0"), {kBadSize + "4)"}},
        {size("null"), sizeRead("0"), {kBadSize + "0)"}},
        {size("{}"), sizeRead("0"), {kBadSize + "7)"}},
        {R"("attributes":32,"permissions":"WRITE",)" + kTimes, sizeRead("0"), {kBadSize + "4)"}},

        {bits(R"("attributes":33.9,)"), bitsRead("33"), {}},
        {bits(R"("attributes":4294967295,)"), bitsRead("4294967295"), {}},
        {bits(R"("attributes":32,"directory":true,)"), bitsRead("48"), {}},
        {bits(R"("attributes":32,"directory":false,)"), bitsRead("32"), {}},
        {bits(R"("attributes":32,"directory":1,)"), bitsRead("32"), {}}, // a folder by its number, but not by its type
        {bits(""), bitsRead("128"), {kBadAttributes + "4)"}},
        {bits(R"("directory":true,)"), bitsRead("16"), {kBadAttributes + "4)"}},
        {bits(R"("directory":1,)"), bitsRead("16"), {kBadAttributes + "4)"}},
        {bits(R"("directory":null,"attributes":"32",)"), bitsRead("128"), {kBadAttributes + "4)"}},
        {bits(R"("attributes":null,)"), bitsRead("128"), {kBadAttributes + "0)"}},
        {bits(R"("attributes":true,)"), bitsRead("128"), {kBadAttributes + "5)"}},
        {bits(R"("attributes":[1],)"), bitsRead("128"), {kBadAttributes + "6)"}},
    });
}

TEST(ItemParsingTests, Times)
{
    const std::string rest = "," + kNumbers + R"(,"permissions":"WRITE")";
    const std::string created = R"("creation_time":"2015-03-02T10:20:30.1239999Z",)";
    const std::string modified = R"("modification_time":"2016-02-29T23:59:59.5Z",)";
    const std::string modifiedRead = " 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z 2016-02-29T23:59:59.500Z --";
    const auto notATime = [](const std::string& text) { return "Error: [" + text + "] is not a valid time"; };
    ExpectItems({
        // Another type is tolerated, also for the modification time, whose message speaks of the creation.
        {modified + R"("creation_time":5)" + rest, {kNoName + "32 7 INVALID" + modifiedRead}, {kBadTime}},
        {created + R"("modification_time":["x"])" + rest,
         {kNoName + "32 7 2015-03-02T10:20:30.123Z INVALID INVALID INVALID --"},
         {kBadTime}},
        {modified + R"("creation_time":{"a":1.5})" + rest, {kNoName + "32 7 INVALID" + modifiedRead}, {kBadTime}},
        {created + R"("modification_time":null)" + rest,
         {kNoName + "32 7 2015-03-02T10:20:30.123Z INVALID INVALID INVALID --"},
         {kBadTime}},
        // A text that is no time drops the item, and so does a missing one.
        {modified + R"("creation_time":"2015-01-01T00:00:00Z")" + rest, {}, {notATime("2015-01-01T00:00:00Z")}},
        {modified + R"("size":7)", {}, {notATime("")}},
        {created + R"("modification_time":"2015-01-01T00:00:00Z")" + rest,
         {},
         {notATime("2015-01-01T00:00:00Z"), notATime("2015-01-01T00:00:00Z"), notATime("2015-01-01T00:00:00Z")}},
        {created + R"("size":7)", {}, {notATime(""), notATime(""), notATime("")}},
        // An impossible date is a time: the start of the scale.
        {modified + R"("creation_time":"2015-02-30T00:00:00.5Z")" + rest, {kNoName + "32 7 1601-01-01T00:00:00.000Z" + modifiedRead}, {}},
    });
}

TEST(ItemParsingTests, Permissions)
{
    const auto item = [](const std::string& members) { return members + kTimes + "," + kNumbers; };
    const auto read = [](const std::string& flags) { return Texts{kNoName + "32 7" + kTimesRead + flags}; };
    ExpectItems({
        {item(""), read("rf"), {}},
        {item(R"("permissions":"wRite",)"), read("--"), {}},
        {item(R"("permissions":"READ",)"), read("rf"), {}},
        {item(R"("permissions":"WRITE ",)"), read("rf"), {}},
        {item(R"("permissions":"WR\u0131TE",)"), read("rf"), {}},
        {item(R"("permissions":5,)"), read("--"), {}},
        {item(R"("permissions":null,)"), read("--"), {}},
        {item(R"("permissions":false,)"), read("--"), {}},
        {item(R"("permissions":["READ"],)"), read("--"), {}},
        {item(R"("permissions":"WRITE","folder_permissions":"READ",)"), read("-f"), {}},
        {item(R"("permissions":"READ","folder_permissions":"write",)"), read("r-"), {}},
        {item(R"("permissions":"WRITE","folder_permissions":null,)"), read("--"), {}},
        {item(R"("permissions":"WRITE","folder_permissions":true,)"), read("-f"), {}},
    });
}

TEST(ItemParsingTests, TheTopOfAReplyLeadsToItsItems)
{
    const std::string a = R"({"name":"a",)" + kRest + "}";
    const std::string b = R"({"name":"b",)" + kRest + "}";
    const std::string dropped = R"({"name":"dropped"})";
    const std::string aRead = "'' 'a' " + kRestRead;
    const std::string bRead = "'' 'b' " + kRestRead;
    const struct
    {
        std::string reply;
        Texts records;
    } cases[] = {
        {R"({"contents":[)" + a + "," + b + "]}", {aRead, bRead}},
        {R"({"contents":[)" + a + "," + dropped + "," + b + "]}", {aRead, bRead}},
        {R"({"contents":)" + a + "}", {aRead}},
        {R"({"document_info":)" + a + "}", {aRead}},
        {R"({"document_info":[)" + a + "," + b + "]}", {aRead, bRead}},
        {R"({"contents":[)" + a + R"(],"document_info":)" + b + "}", {aRead}},
        {R"({"contents":null,"document_info":)" + b + "}", {}},
        {R"({"contents":[]})", {}},
        {a, {}},
        {"{}", {}},
        {"null", {}},
    };
    for (const auto& each : cases)
    {
        ServerItemList list;
        EXPECT_EQ(CNativeHttp::ProcessJSONDictionary(ParseText(each.reply), list, true), each.records.size()) << each.reply;
        EXPECT_EQ(DescribeAll(list), each.records) << each.reply;
    }
    ServerItemList list;
    EXPECT_EQ(CNativeHttp::ProcessJSONArray(ParseText(R"([{"contents":[)" + a + "]},{\"document_info\":" + b + "}]"), list, true), 2U);
    EXPECT_EQ(DescribeAll(list), (Texts{aRead, bRead}));
}

TEST(ItemParsingTests, AValueThatCannotBeConvertedEndsAnArrayAndThrowsForASingleItem)
{
    const std::string good = R"({"name":"a",)" + kRest + "}";
    const char* const bad[] = {
        R"({"attributes":-1,)",     R"({"attributes":4294967296,)",
        R"({"attributes":1e300,)",  R"({"directory":"yes",)",
        R"({"directory":[],)",      R"({"name":{"a":1},)",
        R"({"name":[1],)",          R"({"revision":[1],)",
        R"({"orca_path":{"a":1},)", R"({"folder_permissions":[1],"attributes":1,)",
    };
    std::vector<std::string> elements = {"5", "\"text\"", "true", "[1]"};
    for (const char* members : bad)
        elements.push_back(members + std::string(R"("size":1,"permissions":"WRITE",)") + kTimes + "}");

    for (const std::string& element : elements)
    {
        TraceCapture trace;
        ServerItemList list;
        const Json::Value array = ParseText("[" + good + "," + element + "," + good + "]");
        EXPECT_EQ(CNativeHttp::ProcessJSONArray(array, list, false), 1U) << element;
        EXPECT_EQ(list.size(), 1U) << element;
        ASSERT_EQ(trace.Messages(EVT_ERROR).size(), 1U) << element << trace;
        EXPECT_TRUE(trace.Messages(EVT_ERROR)[0].starts_with("JSON library has thrown a runtime_error exception (")) << trace;

        EXPECT_THROW(CNativeHttp::ProcessJSONDictionary(array[1], list, false), Json::Exception) << element;
        EXPECT_EQ(list.size(), 1U) << element;
    }
}

TEST(ItemExtractionTests, OneParseGivesTheFolderAndItsChildren)
{
    const std::string child = R"({"name":"child",)" + kRest + "}";
    const std::string childRead = "'' 'child' " + kRestRead;
    const std::string folder = R"("name":"folder",)" + kRest;
    const std::string folderRead = "'' 'folder' " + kRestRead;
    const struct
    {
        std::string reply;
        Texts children;
        Texts self;
    } cases[] = {
        {"{" + folder + R"(,"contents":[)" + child + "," + child + "]}", {childRead, childRead}, {folderRead}},
        {"{" + folder + R"(,"contents":[]})", {}, {folderRead}},
        {"{" + folder + "}", {}, {folderRead}},
        {R"({"contents":[)" + child + "]}", {childRead}, {}},
        {R"({"document_info":)" + child + "}", {childRead}, {}},
        {R"({"contents":[)" + child + "]," + folder + "}", {childRead}, {folderRead}},
        {"[" + child + "]", {}, {childRead}},
        {"[" + child + "," + child + "]", {}, {childRead, childRead}},
        {"null", {}, {}},
        {"", {}, {}},
        {"<html>", {}, {}},
        {std::string("\0\0\0", 3), {}, {}},
    };
    for (const auto& each : cases)
    {
        const Extracted extracted = Extract(each.reply);
        EXPECT_EQ(extracted.children, each.children) << each.reply;
        EXPECT_EQ(extracted.self, each.self) << each.reply;
        EXPECT_EQ(extracted.count, each.children.size() + each.self.size()) << each.reply;
        std::string reply = each.reply;
        EXPECT_EQ(ExtractSingleItem(AsReply(reply)) != nullptr, extracted.count == 1) << each.reply;
    }
    ServerItemList children;
    ServerItemList self;
    EXPECT_EQ(ExtractAttributes({}, children, self), 0U);
}

TEST(ItemExtractionTests, WhatTheJsonLibraryThrowsEndsTheExtraction)
{
    const std::string child = R"({"name":"child",)" + kRest + "}";
    const std::string numbers = kTimes + R"(,"permissions":"WRITE","size":7)";
    const struct
    {
        std::string reply;
        std::uint32_t count;
    } cases[] = {
        {"{" + numbers + R"(,"attributes":-1})", 0},
        {R"({"contents":[)" + child + R"(],"attributes":-1,)" + numbers + "}", 1},
        {R"({"contents":5,)" + kRest + "}", 0},
        {"5", 0},
        {"\"text\"", 0},
        {Nested(10000, "[", "]"), 0},
        {Nested(10000, "{\"contents\":", "}"), 0},
        {Nested(10000, "[{\"contents\":", "}]"), 0},
    };
    for (const auto& each : cases)
    {
        const Extracted extracted = Extract(each.reply);
        EXPECT_EQ(extracted.count, each.count) << each.reply.substr(0, 200);
        ASSERT_FALSE(extracted.errors.empty()) << each.reply.substr(0, 200);
        EXPECT_TRUE(extracted.errors.back().starts_with("JSON library has thrown a runtime_error exception (")) << extracted.errors.back();
    }
}
