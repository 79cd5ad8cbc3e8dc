#pragma once

#include "TraceCapture.h"
#include "Tracing.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

/// @return the cases of a file in Tests/Cases, which may hold comments. Where the JSON library has to correct them, as the library does
/// with replies, `ReadCases` in Operations.h reads them.
/// @param name  of the file, without its folder.
inline Json::Value ReadCaseFile(const std::string& name)
{
    std::ifstream file(QUENDRA_SOURCE_DIR "/Tests/Cases/" + name, std::ios::binary);
    Json::Value cases;
    file >> cases;
    return cases;
}

/// @return the cases of one group of such a file, which has some.
inline Json::Value CasesOf(const std::string& name, const char* group)
{
    Json::Value cases = ReadCaseFile(name)[group];
    EXPECT_FALSE(cases.empty()) << group;
    return cases;
}

/// What comes of a case of each group, as a text.
using ShownCases = std::map<std::string, std::function<std::string(const Json::Value& given)>>;

/// Compares what comes of each case with its last member, or, where that is an array, with the second of the two on Windows. The errors
/// that are traced follow, each behind "; ", and what is thrown takes the place of the text.
/// @param groups  cases by the names of all these groups.
inline void ExpectCases(const Json::Value& groups, const ShownCases& shown)
{
    ASSERT_EQ(groups.size(), shown.size());
    for (const auto& [group, show] : shown)
    {
        EXPECT_FALSE(groups[group].empty()) << group;
        for (Json::Value given : groups[group])
        {
            Json::Value expected;
            given.removeIndex(given.size() - 1, &expected);
            if (expected.isArray())
                expected = Json::Value(expected[std::filesystem::path::preferred_separator == '\\' ? 1 : 0]);
            const TraceCapture trace;
            std::string text;
            try
            {
                text = show(std::as_const(given));
            }
            catch (const std::exception& thrown)
            {
                text = thrown.what();
            }
            for (const std::string& error : trace.Messages(EVT_ERROR))
                text += "; " + error;
            EXPECT_EQ(text, expected.asString()) << group << ": " << given;
        }
    }
}
