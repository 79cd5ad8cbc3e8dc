// Plans of faults: what they may hold, and that a seed chooses the same faults again.

#include "CaseFile.h"
#include "Faults.h"
#include "JsonText.h"

namespace
{
using namespace ApplianceParts;

TEST(FaultPlanTest, WhatIsWrongIsToldWithItsPlace)
{
    Json::Value groups;
    groups["plans"] = ReadCaseFile("Appliance.json")["plans"];
    ExpectCases(groups, {{"plans", [](const Json::Value& given) {
                              const std::string plan = given[0].isString() ? given[0].asString() : JsonLine(given[0]);
                              return std::to_string(ReadFaultPlan(plan).faults.size()) + " faults";
                          }}});
    EXPECT_THROW((void)ReadFaultPlan(std::string(2000, '[')), std::runtime_error);
}

TEST(FaultPlanTest, TheSeedChooses)
{
    const auto play = [](std::uint64_t seed) {
        std::vector<std::string> lines;
        const auto choose = ChooseFrom(ReadFaultPlan(R"({"chance": 0.5, "faults": [{"name": "a", "count": 2}, {"name": "b", "path": "/x"},
            {"name": "c", "method": "PUT"}, {"name": "d", "chance": 0.5}, {"name": "e", "at": "connection"}, {"name": "f", "chance": 0}]})"),
                                       seed, [&lines](const std::string& line) { lines.push_back(line); });
        for (int round = 0; round < 50; ++round)
            for (const FaultOccasion& occasion : {FaultOccasion{}, {"GET", "/"}, {"GET", "/a/x/b"}})
                static_cast<void>(choose(occasion));
        return lines;
    };
    const auto lines = play(7);
    EXPECT_EQ(lines, play(7));
    EXPECT_NE(lines, play(8));
    std::map<std::string, int> counts;
    for (const std::string& line : lines)
    {
        ++counts[line.substr(line.size() - 1)];
        EXPECT_EQ(line.starts_with("fault at connection "), line.ends_with(": e"));
    }
    EXPECT_EQ(counts["a"], 2);
    EXPECT_TRUE(counts["b"] > 0 && counts["e"] > 0);
    EXPECT_EQ(counts["c"] + counts["f"], 0);
}
} // namespace
