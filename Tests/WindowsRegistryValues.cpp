#include "RegistryValues.h"

#include "Platform/Platform.h"

#include <stdexcept>

namespace
{

// The keys are made for the test and volatile; where somebody has values there already, they are not touched.
struct Key
{
    HKEY root;
    const wchar_t* path;
    HKEY key = nullptr;
};
Key g_keys[] = {{HKEY_CURRENT_USER, L"Software\\Ostvalen\\Quendra"},
                {HKEY_LOCAL_MACHINE, L"Software\\Ostvalen\\Quendra"},
                {HKEY_USERS, L"S-1-5-21-7\\Software\\Ostvalen\\Quendra"}};

void Set(RegistryValues::Root root, const std::wstring& name, DWORD type, const void* data, std::size_t bytes)
{
    RegSetValueExW(g_keys[static_cast<int>(root)].key, name.c_str(), 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(bytes));
}

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

void RegistryValues::SetNumber(Root root, const std::wstring& name, std::uint32_t value)
{
    Set(root, name, REG_DWORD, &value, sizeof value);
}

void RegistryValues::SetText(Root root, const std::wstring& name, const std::wstring& value, bool isExpandable)
{
    Set(root, name, isExpandable ? REG_EXPAND_SZ : REG_SZ, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
}

void RegistryValues::SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values)
{
    std::wstring all;
    for (const std::wstring& value : values)
        all += value + L'\0';
    Set(root, name, REG_MULTI_SZ, all.c_str(), (all.size() + 1) * sizeof(wchar_t));
}
