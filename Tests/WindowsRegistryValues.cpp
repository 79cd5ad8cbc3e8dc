#include "RegistryValues.h"

#include "Platform/Platform.h"

class RegistryValues::Store
{
public:
    ~Store()
    {
        for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
            RegDeleteTreeW(root, kKey);
    }

    static void Set(Root root, const std::wstring& name, DWORD type, const void* data, std::size_t bytes)
    {
        RegSetKeyValueW(root == Root::User ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE, kKey, name.c_str(), type, data,
                        static_cast<DWORD>(bytes));
    }

    static void Set(Root root, const std::wstring& name, DWORD type, const std::wstring& text)
    {
        Set(root, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

private:
    static constexpr const wchar_t* kKey = L"Software\\Ostvalen\\Quendra";
};

RegistryValues::RegistryValues() : m_store(std::make_unique<Store>())
{
}

RegistryValues::~RegistryValues() = default;

void RegistryValues::SetNumber(Root root, const std::wstring& name, std::uint32_t value)
{
    Store::Set(root, name, REG_DWORD, &value, sizeof value);
}

void RegistryValues::SetText(Root root, const std::wstring& name, const std::wstring& value)
{
    Store::Set(root, name, REG_SZ, value);
}

void RegistryValues::SetExpandableText(Root root, const std::wstring& name, const std::wstring& value)
{
    Store::Set(root, name, REG_EXPAND_SZ, value);
}

void RegistryValues::SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values)
{
    std::wstring all;
    for (const std::wstring& value : values)
        all += value + L'\0';
    Store::Set(root, name, REG_MULTI_SZ, all);
}
