#include "RegistryValues.h"

#include "TextConversion.h"

#include "Platform/Platform.h"

#include <stdexcept>

namespace
{

// The keys are volatile and made for the test. Existing keys are an error, so that nobody's values are changed.
struct Key
{
    HKEY root;
    const wchar_t* path;
    HKEY key = nullptr;
};
Key g_keys[] = {{HKEY_CURRENT_USER, L"Software\\Ostvalen\\Quendra"},
                {HKEY_LOCAL_MACHINE, L"Software\\Ostvalen\\Quendra"},
                {HKEY_USERS, L"S-1-5-21-7\\Software\\Ostvalen\\Quendra"}};

} // namespace

RegistryValues::RegistryValues()
{
    for (auto& [root, path, key] : g_keys)
    {
        DWORD disposition = 0;
        if (RegCreateKeyExW(root, path, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, &disposition) != ERROR_SUCCESS ||
            disposition != REG_CREATED_NEW_KEY)
            throw std::runtime_error("The registry has values of its own for the library, or does not take any");
    }
}

RegistryValues::~RegistryValues()
{
    for (const auto& [root, path, key] : g_keys)
    {
        RegCloseKey(key);
        RegDeleteTreeW(root, path);
    }
}

void RegistryValues::Set(Root root, const std::string& name, const Json::Value& value)
{
    const auto set = [&](DWORD type, const void* data, std::size_t bytes) {
        RegSetValueExW(g_keys[static_cast<int>(root)].key, ToWide(name).c_str(), 0, type, static_cast<const BYTE*>(data),
                       static_cast<DWORD>(bytes));
    };
    if (value.isNumeric())
    {
        const DWORD number = value.asUInt();
        return set(REG_DWORD, &number, sizeof number);
    }
    std::wstring text;
    for (const auto& each : value.isArray() ? value : Json::Value(Json::arrayValue))
        text += ToWide(each.asString()) + L'\0';
    if (!value.isArray())
        text = ToWide((value.isObject() ? value["data"] : value).asString());
    set(value.isArray() ? REG_MULTI_SZ : value.isObject() ? REG_EXPAND_SZ : REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}
