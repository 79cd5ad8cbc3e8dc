// The parsers of the feed and of the mappings while memory runs out: one entry is lost, its neighbours are read.

#include "FailingAllocation.h"
#include "ParsingSupport.h"
#include "TraceCapture.h"
#include "Tracing.h"

#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <set>

namespace
{

using Texts = std::set<std::string>;

// Parses three entries, each time with the next of all allocations failing.
// @return the kinds of errors, up to a parenthesis.
template <typename Records, typename Parse> Texts FailEachAllocation(const std::string& json, const Parse& parse)
{
    const Json::Value entries = ParseText(json);
    const TraceCapture trace(EVT_ERROR);
    std::size_t failures = 0;
    for (bool hasFailed = true; hasFailed; failures += hasFailed ? 1 : 0)
    {
        Records records;
        t_allocationToFail = static_cast<int>(failures) + 1;
        const std::uint32_t count = parse(entries, records);
        hasFailed = std::exchange(t_allocationToFail, 0) == 0;
        EXPECT_EQ(count, hasFailed ? 2U : 3U);
        EXPECT_EQ(records.size(), count);
    }
    EXPECT_GT(failures, 9U);
    EXPECT_EQ(trace.Messages().size(), failures);
    Texts kinds;
    for (const std::string& message : trace.Messages())
        kinds.insert(message.substr(0, message.find('(')));
    return kinds;
}

TEST(AllocationFailures, CostTheFeedOneAction)
{
    const std::string json = R"([{"a":"create","m":"/a path of some length"},{"a":"an action of a longer name"},
        {"a":"move","m":{"from":"/a path of some length","to":"/another path of some length"}}])";
    EXPECT_EQ(FailEachAllocation<Actions>(json, &CNativeHttp::ProcessNotificationJSONArray),
              Texts{"JSON library has thrown a bad_alloc exception "});
}

TEST(AllocationFailures, CostTheMappingsOneMapping)
{
    const std::string entry =
        R"({"name":"a name of some length","description":"a description of some length","permissions":"permissions"})";
    EXPECT_EQ(FailEachAllocation<Mappings>("[" + entry + "," + entry + "," + entry + "]", &CNativeHttp::ProcessMappingJSONArray),
              (Texts{"Failed to create mapping for [a name of some length] - error [-2147467259]",
                     "JSON library has thrown a bad_alloc exception "}));
}

} // namespace
