#include "RegistryValues.h"

#include "Platform/Platform.h"

#include <stdexcept>

// The keys are made for the test and volatile; where somebody has values there already, they are not touched.
class RegistryValues::Store
{
public:
    Store()
    {
        for (const Place& place : kPlaces)
        {
            HKEY key = nullptr;
            DWORD disposition = 0;
            const LSTATUS result = RegCreateKeyExW(place.root, place.key.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                                                   &key, &disposition);
            if (result != ERROR_SUCCESS || disposition != REG_CREATED_NEW_KEY)
                throw std::runtime_error("The registry has values of its own for the library, or does not take any");
            m_keys.push_back(key);
        }
    }
    ~Store()
    {
        for (std::size_t i = 0; i < m_keys.size(); ++i)
        {
            RegCloseKey(m_keys[i]);
            RegDeleteTreeW(kPlaces[i].root, kPlaces[i].key.c_str());
        }
    }

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    void Set(Root root, const std::wstring& name, DWORD type, const void* data, std::size_t bytes) const
    {
        RegSetValueExW(m_keys[static_cast<std::size_t>(root)], name.c_str(), 0, type, static_cast<const BYTE*>(data),
                       static_cast<DWORD>(bytes));
    }

    void Set(Root root, const std::wstring& name, DWORD type, const std::wstring& text) const
    {
        Set(root, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

private:
    struct Place
    {
        HKEY root;
        std::wstring key;
    };
    static inline const std::vector<Place> kPlaces = {{HKEY_CURRENT_USER, L"Software\\Ostvalen\\Quendra"},
                                                      {HKEY_LOCAL_MACHINE, L"Software\\Ostvalen\\Quendra"},
                                                      {HKEY_USERS, L"S-1-5-21-7\\Software\\Ostvalen\\Quendra"}};

    std::vector<HKEY> m_keys;
};

RegistryValues::RegistryValues() : m_store(std::make_unique<Store>())
{
}

RegistryValues::~RegistryValues() = default;

void RegistryValues::SetNumber(Root root, const std::wstring& name, std::uint32_t value)
{
    m_store->Set(root, name, REG_DWORD, &value, sizeof value);
}

void RegistryValues::SetText(Root root, const std::wstring& name, const std::wstring& value)
{
    m_store->Set(root, name, REG_SZ, value);
}

void RegistryValues::SetExpandableText(Root root, const std::wstring& name, const std::wstring& value)
{
    m_store->Set(root, name, REG_EXPAND_SZ, value);
}

void RegistryValues::SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values)
{
    std::wstring all;
    for (const std::wstring& value : values)
        all += value + L'\0';
    m_store->Set(root, name, REG_MULTI_SZ, all);
}
