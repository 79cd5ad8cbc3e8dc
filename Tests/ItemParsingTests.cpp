#include "Attributes.h"
#include "CaseFile.h"
#include "Operations.h"
#include "Patterns.h"
#include "Replies/ItemParsing.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

const std::string kTimes = R"("creation_time":"2015-03-02T10:20:30.1239999Z","modification_time":"2016-02-29T23:59:59.5Z")";
const std::string kRest = kTimes + R"(,"size":7,"attributes":32,"permissions":"WRITE")";

std::string ShowTimes(const IServerAttributes& record)
{
    std::string times;
    for (const CAttributeTime time :
         {record.GetCreationTime(), record.GetLastAccessTime(), record.GetLastWriteTime(), record.GetChangeTime()})
        times += (times.empty() ? "" : " ") + ToNarrow(time.ToString());
    return times;
}

TEST(ItemParsingTests, ItemsAreReadAsItemsJsonSays)
{
    Json::Value groups = ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Items.json");
    for (Json::Value& group : groups)
    {
        for (Json::Value& each : group["cases"])
            for (const std::string& member : group["shared"].getMemberNames())
                if (!each[0].isMember(member))
                    each[0][member] = group["shared"][member];
        group = Json::Value(group["cases"]);
    }
    const auto show = [](std::string (*shown)(const IServerAttributes&)) {
        return [=](const Json::Value& given) {
            ServerItemList list;
            const std::uint32_t count = ProcessJSONDictionary(given[0], list, false);
            EXPECT_EQ(count, list.size());
            return list.empty() ? "dropped" : shown(*list.front());
        };
    };
    ExpectCases(groups,
                {{"names", show([](const IServerAttributes& record) { return record.GetRevision() + "|" + ToNarrow(record.GetName()); })},
                 {"sizes", show([](const IServerAttributes& record) { return std::to_string(record.GetSize()); })},
                 {"attributes", show([](const IServerAttributes& record) { return record.GetAttributesStringA(); })},
                 {"times", show(ShowTimes)},
                 {"permissions", show([](const IServerAttributes& record) {
                      return std::string(record.IsReadOnly() ? "read-only" : "writable") +
                             (record.IsFolderReadOnly() ? " in read-only" : "");
                  })}});
}

// What a reply is read as: its items, and "in" the reply as an item. "$a" stands for an item of this name without the braces, "$times"
// for its times alone.
std::string Extracted(std::string reply)
{
    reply = ReplaceAll(reply, "\\$times", kTimes);
    reply = ReplaceAll(reply, "\\$(\\w)", R"("name":"$1",)" + kRest);
    const TraceCapture trace;
    ServerItemList children;
    ServerItemList self;
    const std::uint32_t count = ExtractAttributes(AsReply(reply), children, self);
    EXPECT_EQ(count, children.size() + self.size());
    std::string extracted;
    for (const auto& child : children)
        extracted += ToNarrow(child->GetName()) + " ";
    for (const auto& record : self)
        extracted += (record == self.front() ? "in " : " ") + ToNarrow(record->GetName());
    for (const std::string& error : trace.Messages(EVT_ERROR))
        extracted += error.starts_with("JSON library has thrown a runtime_error exception (") ? "thrown" : "";
    EXPECT_EQ(ExtractSingleItem(AsReply(reply)) != nullptr, count == 1);
    return extracted;
}

TEST(ItemExtractionTests, OneParseGivesTheReplysItemsAndTheReplyAsAnItem)
{
    ExpectCases(ReadCaseFile("Replies.json"), {{"replies", [](const Json::Value& given) { return Extracted(given[0].asString()); }}});
    EXPECT_EQ(Extracted("{\"name\":\"a\xff\"," + kRest + "}"), "in a\ufffd");
    EXPECT_EQ(Extracted(std::string("\0\0\0", 3)), "");
    EXPECT_EQ(Extracted(std::string(10000, '[')), "thrown");
    ServerItemList items;
    EXPECT_EQ(ExtractAttributes({}, items, items), 0U);
}

} // namespace
