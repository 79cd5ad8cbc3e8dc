#include "RegistryValues.h"

#include <json/writer.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{
const std::string kPath = std::filesystem::temp_directory_path() / ("quendra-registry-" + std::to_string(getpid()) + ".json");
Json::Value g_values;
} // namespace

RegistryValues::RegistryValues()
{
    setenv("QUENDRA_REGISTRY", kPath.c_str(), 1);
}

RegistryValues::~RegistryValues()
{
    g_values.clear();
    std::filesystem::remove(kPath);
}

void RegistryValues::Set(Root root, const std::string& name, const Json::Value& value)
{
    const char* const roots[] = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
    const std::string user = root == Root::OtherUser ? "S-1-5-21-7\\" : "";
    g_values[roots[static_cast<int>(root)]][user + "Software\\Ostvalen\\Quendra"][name] = value;
    std::ofstream(kPath) << g_values;
}
