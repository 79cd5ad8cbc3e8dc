#include "RegistryValues.h"
#include "TextConversion.h"

#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

class RegistryValues::Store
{
public:
    Store() { setenv("QUENDRA_REGISTRY", m_path.c_str(), 1); }
    ~Store() { std::filesystem::remove(m_path); }

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    void Set(Root root, const std::wstring& name, const Json::Value& value)
    {
        const char* const roots[] = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
        const std::string user = root == Root::OtherUser ? "S-1-5-21-7\\" : "";
        m_values[roots[static_cast<int>(root)]][user + "Software\\Ostvalen\\Quendra"][ToNarrow(name)] = value;
        std::ofstream(m_path) << m_values;
    }

private:
    const std::string m_path = std::filesystem::temp_directory_path() / ("quendra-registry-" + std::to_string(getpid()) + ".json");
    Json::Value m_values;
};

RegistryValues::RegistryValues() : m_store(std::make_unique<Store>())
{
}

RegistryValues::~RegistryValues() = default;

void RegistryValues::SetNumber(Root root, const std::wstring& name, std::uint32_t value)
{
    m_store->Set(root, name, value);
}

void RegistryValues::SetText(Root root, const std::wstring& name, const std::wstring& value)
{
    m_store->Set(root, name, ToNarrow(value));
}

void RegistryValues::SetExpandableText(Root root, const std::wstring& name, const std::wstring& value)
{
    Json::Value expandable;
    expandable["type"] = "REG_EXPAND_SZ";
    expandable["data"] = ToNarrow(value);
    m_store->Set(root, name, expandable);
}

void RegistryValues::SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values)
{
    Json::Value list(Json::arrayValue);
    for (const std::wstring& value : values)
        list.append(ToNarrow(value));
    m_store->Set(root, name, list);
}
