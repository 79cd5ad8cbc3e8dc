// The parsers of the feed and of the mappings while memory runs out: one entry is lost, its neighbours are read.

#include "FailingAllocation.h"
#include "ParsingSupport.h"
#include "Tracing.h"

#include "Eventing/EventSink.h"
#include "QuendraHttp/NativeHttp.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

// Counts errors by their beginning, without allocating anything.
class ErrorCounter
{
public:
    ErrorCounter(const char* first, const char* second) : m_beginnings{first, second}
    {
        EventProviderHandle = OpenEventSink(EVT_ERROR.level, Eventing::kAnyKeyword, &ErrorCounter::Take, this);
    }
    ~ErrorCounter()
    {
        CloseEventSink(EventProviderHandle);
        EventProviderHandle = 0;
    }
    ErrorCounter(const ErrorCounter&) = delete;
    ErrorCounter& operator=(const ErrorCounter&) = delete;

    int counts[3] = {}; // of each beginning, of any other

private:
    static void Take(void* context, const Eventing::Event* event)
    {
        auto& self = *static_cast<ErrorCounter*>(context);
        int index = 0;
        while (index < 2 && std::strncmp(event->message, self.m_beginnings[index], std::strlen(self.m_beginnings[index])) != 0)
            ++index;
        ++self.counts[index];
    }

    const char* m_beginnings[2];
};

// Parses three entries, each time with the next of all allocations failing.
template <typename Records, typename Parse> void FailEachAllocation(const std::string& json, const Parse& parse, ErrorCounter& errors)
{
    const Json::Value entries = ParseText(json);
    int failures = 0;
    for (bool hasFailed = true; hasFailed;)
    {
        Records records;
        std::uint32_t count = 0;
        {
            const FailingAllocation failing(failures + 1);
            count = parse(entries, records);
            hasFailed = failing.HasFailed();
        }
        failures += hasFailed ? 1 : 0;
        EXPECT_EQ(count, hasFailed ? 2U : 3U);
        EXPECT_EQ(records.size(), count);
    }
    EXPECT_GT(failures, 9);
    EXPECT_EQ(errors.counts[0] + errors.counts[1], failures);
    EXPECT_EQ(errors.counts[2], 0);
    EXPECT_GT(errors.counts[0], 0);
}

TEST(AllocationFailures, CostTheFeedOneAction)
{
    ErrorCounter errors("JSON library has thrown a bad_alloc exception (", "nothing else");
    FailEachAllocation<Actions>(R"([{"a":"create","m":"/a path of some length"},{"a":"move","m":{"from":"/a path of some length",
        "to":"/another path of some length"}},{"a":"an action of a longer name"}])",
                                &CNativeHttp::ProcessNotificationJSONArray, errors);
    EXPECT_EQ(errors.counts[1], 0);
}

TEST(AllocationFailures, CostTheMappingsOneMapping)
{
    const std::string entry =
        R"({"name":"a name of some length","description":"a description of some length","permissions":"permissions"})";
    ErrorCounter errors("Failed to create mapping for [a name of some length] - error [-2147467259]",
                        "JSON library has thrown a bad_alloc exception (");
    FailEachAllocation<Mappings>("[" + entry + "," + entry + "," + entry + "]", &CNativeHttp::ProcessMappingJSONArray, errors);
    EXPECT_GT(errors.counts[1], 0);
}

} // namespace
