#include "RegistryValues.h"

#include "Platform/Platform.h"

// While it lives, the process has keys of the test's own for the roots that the library reads.
class RegistryValues::Store
{
public:
    Store()
    {
        for (const HKEY root : kRoots)
        {
            HKEY own = nullptr;
            const std::wstring path = m_path + L"\\" + std::to_wstring(reinterpret_cast<std::uintptr_t>(root));
            RegCreateKeyExW(m_user, path.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &own, nullptr);
            m_own.push_back(own);
        }
        for (std::size_t i = 0; i < m_own.size(); ++i)
            RegOverridePredefKey(kRoots[i], m_own[i]);
    }
    ~Store()
    {
        for (std::size_t i = 0; i < m_own.size(); ++i)
        {
            RegOverridePredefKey(kRoots[i], nullptr);
            RegCloseKey(m_own[i]);
        }
        RegDeleteTreeW(m_user, m_path.c_str());
        RegCloseKey(m_user);
    }

    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    static void Set(Root root, const std::wstring& name, DWORD type, const void* data, std::size_t bytes)
    {
        const std::wstring path = std::wstring(root == Root::OtherUser ? L"S-1-5-21-7\\" : L"") + L"Software\\Ostvalen\\Quendra";
        RegSetKeyValueW(kRoots[static_cast<int>(root)], path.c_str(), name.c_str(), type, data, static_cast<DWORD>(bytes));
    }

    static void Set(Root root, const std::wstring& name, DWORD type, const std::wstring& text)
    {
        Set(root, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

private:
    static HKEY OpenUser()
    {
        HKEY user = nullptr;
        RegOpenCurrentUser(KEY_ALL_ACCESS, &user);
        return user;
    }

    static inline const HKEY kRoots[] = {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS};

    const HKEY m_user = OpenUser();
    const std::wstring m_path = L"Software\\QuendraTests-" + std::to_wstring(GetCurrentProcessId());
    std::vector<HKEY> m_own;
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
