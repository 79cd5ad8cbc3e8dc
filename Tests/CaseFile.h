#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>
#include <string>

/// @return the cases of a file in Tests/Cases, which may hold comments. Where the JSON library has to mend them, as the library does with
/// replies, `ReadCases` in Operations.h reads them.
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
