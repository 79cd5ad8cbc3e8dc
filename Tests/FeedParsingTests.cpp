// Change-feed actions and folder mappings on the wire: JSON in, records and messages out.

#include "CaseFile.h"
#include "JsonText.h"
#include "Operations.h"
#include "Replies/FeedParsing.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

namespace
{

// What a reply is read as: its records, then a "!" for each entry that cannot be read.
template <typename Parse> std::string ReadAs(std::string reply, const Parse& parse)
{
    const TraceCapture trace;
    Caller caller;
    std::string again = reply;
    const std::uint32_t count = parse(AsReply(reply), caller);
    EXPECT_EQ(count, caller.actions.size() + caller.mappings.size());
    std::string outputs = caller.Outputs();
    for (const std::string& error : trace.Messages(EVT_ERROR))
        outputs += error.starts_with("JSON library has thrown a runtime_error exception (") && !error.ends_with("()!") ? "!" : error;
    EXPECT_EQ(parse(AsReply(again), caller), count) << "what was there does not count";
    return outputs;
}

TEST(FeedParsing, RepliesAreReadAsFeedJsonSays)
{
    const auto readActions = [](const ResponseBuffer& reply, Caller& caller) {
        return GetNotificationsFromResponse(reply, caller.actions);
    };
    const auto readMappings = [](const ResponseBuffer& reply, Caller& caller) {
        return Instance(CreateInstance(L"device"))->GetMappingsFromResponse(reply, caller.mappings);
    };
    ExpectCases(ReadCases(QUENDRA_SOURCE_DIR "/Tests/Cases/Feed.json"),
                {{"actions", [&](const Json::Value& given) { return ReadAs(JsonLine(given[0]), readActions); }},
                 {"mappings", [&](const Json::Value& given) { return ReadAs(JsonLine(given[0]), readMappings); }}});

    std::string nested = R"({"name":"a"})";
    for (int depth = 0; depth < 900; ++depth)
        nested = R"({"contents":)" + nested + "}";
    EXPECT_EQ(ReadAs(nested, readMappings), "'/a' '' '' '' 1 2 2 0");
    EXPECT_EQ(ReadAs("<html>", readActions), "");
    EXPECT_EQ(ReadAs(std::string(20000, '['), readActions), "!");
}

} // namespace
