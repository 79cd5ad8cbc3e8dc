#pragma once

#include <json/json.h>

#include <fstream>
#include <string>

/// @return the cases of a file in Tests/Cases, which may hold comments.
/// @param name  of the file, without its folder.
inline Json::Value ReadCaseFile(const std::string& name)
{
    std::ifstream file(QUENDRA_SOURCE_DIR "/Tests/Cases/" + name, std::ios::binary);
    Json::Value cases;
    file >> cases;
    return cases;
}
