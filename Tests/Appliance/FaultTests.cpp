// Plans of faults: what they may hold, and that a seed chooses the same faults again.

#include "CaseFile.h"
#include "Faults.h"
#include "JsonText.h"

namespace
{
using namespace ApplianceParts;

TEST(FaultPlanTest, WhatIsWrongIsToldWithItsPlace)
{
    for (const Json::Value& each : CasesOf("Appliance.json", "plans"))
    {
        std::string told;
        try
        {
            told = std::to_string(ReadFaultPlan(each[0].isString() ? each[0].asString() : JsonLine(each[0])).faults.size()) + " faults";
        }
        catch (const std::runtime_error& error)
        {
            told = error.what();
        }
        EXPECT_EQ(told, each[1].asString());
    }
}

TEST(FaultPlanTest, TheSeedChooses)
{
    const auto play = [](std::uint64_t seed) {
        std::string lines;
        const auto choose = ChooseFrom(ReadFaultPlan(R"({"chance": 0.5, "faults": [{"name": "a", "count": 2}, {"name": "b", "path": "/x"},
            {"name": "c", "method": "PUT"}, {"name": "d", "chance": 0.5}, {"name": "e", "at": "connection"}, {"name": "f", "chance": 0}]})"),
                                       seed, [&lines](const std::string& line) { lines += line + '\n'; });
        for (int round = 0; round < 50; ++round)
            for (const FaultOccasion& occasion : {FaultOccasion{}, {"GET", "/"}, {"GET", "/a/x/b"}})
                EXPECT_TRUE(choose(occasion) || true);
        return lines;
    };
    const auto lines = play(7);
    EXPECT_EQ(lines, play(7));
    EXPECT_NE(lines, play(8));
    const auto count = [&lines](const std::string& text) {
        std::size_t found = 0;
        for (auto at = lines.find(text); at != std::string::npos; at = lines.find(text, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count(": a\n"), 2U);
    EXPECT_GT(count(": b\n"), 0U);
    EXPECT_EQ(count(": c\n") + count(": f\n"), 0U);
    EXPECT_EQ(count("fault at connection "), count(": e\n"));
    EXPECT_GT(count(": e\n"), 0U);
}
} // namespace
