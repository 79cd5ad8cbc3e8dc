// The parsers when memory runs out: a feed or the mappings lose one entry; endpoints are read whole or not at all.

#include "FailingAllocation.h"
#include "Operations.h"
#include "Replies/Endpoints.h"
#include "Replies/FeedParsing.h"
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
    EXPECT_EQ(FailEachAllocation<Actions>(json, &ProcessNotificationJSONArray), Texts{"JSON library has thrown a bad_alloc exception "});
}

TEST(AllocationFailures, CostTheMappingsOneMapping)
{
    const std::string entry =
        R"({"name":"a name of some length","description":"a description of some length","permissions":"permissions"})";
    EXPECT_EQ(FailEachAllocation<Mappings>("[" + entry + "," + entry + "," + entry + "]", &ProcessMappingJSONArray),
              (Texts{"Failed to create mapping for [a name of some length] - error [-2147467259]",
                     "JSON library has thrown a bad_alloc exception "}));
}

TEST(AllocationFailures, EndTheReadingOfEndpointsUnlessTheyAreAllRead)
{
    std::string json = R"({"sync":{"1.0":{"path":"/a path of some length"},"1.1":{"path":"/another path of some length"}},)"
                       R"("audit":{"1":{"path":"/a path of some length"}}})";
    std::set<std::string> outcomes;
    bool hasFailed = true;
    for (int allocation = 1; hasFailed; ++allocation)
    {
        EndpointTable synchronisation;
        EndpointTable logging;
        std::string outcome = "no memory";
        t_allocationToFail = allocation;
        try
        {
            static_cast<void>(GetEndpointsFromResponse(AsReply(json), synchronisation, logging));
            outcome.clear();
        }
        catch (const std::bad_alloc&) // NOLINT(bugprone-empty-catch): the outcome says so
        {
        }
        hasFailed = std::exchange(t_allocationToFail, 0) == 0;
        outcomes.insert(outcome.empty() ? std::to_string(synchronisation.size()) + " and " + std::to_string(logging.size()) : outcome);
    }
    EXPECT_EQ(outcomes, (std::set<std::string>{"0 and 0", "2 and 1", "no memory"}));
}

} // namespace
