#include "RegistryValues.h"
#include "TextConversion.h"

#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{

const std::string kPath = std::filesystem::temp_directory_path() / ("quendra-registry-" + std::to_string(getpid()) + ".json");
Json::Value g_values;

void Set(RegistryValues::Root root, const std::wstring& name, const Json::Value& value)
{
    const char* const roots[] = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
    const std::string user = root == RegistryValues::Root::OtherUser ? "S-1-5-21-7\\" : "";
    g_values[roots[static_cast<int>(root)]][user + "Software\\Ostvalen\\Quendra"][ToNarrow(name)] = value;
    std::ofstream(kPath) << g_values;
}

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

void RegistryValues::SetNumber(Root root, const std::wstring& name, std::uint32_t value)
{
    Set(root, name, value);
}

void RegistryValues::SetText(Root root, const std::wstring& name, const std::wstring& value, bool isExpandable)
{
    Json::Value text;
    text["type"] = isExpandable ? "REG_EXPAND_SZ" : "REG_SZ";
    text["data"] = ToNarrow(value);
    Set(root, name, text);
}

void RegistryValues::SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values)
{
    Json::Value list(Json::arrayValue);
    for (const std::wstring& value : values)
        list.append(ToNarrow(value));
    Set(root, name, list);
}
