#include "Settings.h"

#include <cstring>
#include <string_view>

namespace Settings
{

namespace
{

constexpr const wchar_t* kSubKey = L"Software\\Ostvalen\\Quendra";

class RegistryKey
{
public:
    explicit RegistryKey(const SearchPlace& place)
    {
        if (RegOpenKeyExW(place.root, place.subKey.c_str(), 0, KEY_QUERY_VALUE, &m_key) != ERROR_SUCCESS)
            m_key = nullptr;
    }
    ~RegistryKey()
    {
        if (m_key != nullptr)
            RegCloseKey(m_key);
    }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    [[nodiscard]] bool Query(const std::wstring& name, DWORD& type, std::byte* data, DWORD& size) const
    {
        return m_key != nullptr &&
               RegQueryValueExW(m_key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(data), &size) == ERROR_SUCCESS;
    }

private:
    HKEY m_key = nullptr;
};

bool IsWanted(DWORD type, DWORD wanted)
{
    return type == wanted || (wanted == REG_SZ && type == REG_EXPAND_SZ);
}

// The stored text with its terminators; an incomplete last character is dropped.
std::wstring TextOf(const RawValue& value)
{
    std::wstring text(value.size / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value.data.get(), text.size() * sizeof(wchar_t));
    return text;
}

} // namespace

std::wstring SearchPlace::Text() const
{
    const wchar_t* name = root == HKEY_USERS ? L"HKEY_USERS" : root == HKEY_CURRENT_USER ? L"HKEY_CURRENT_USER" : L"HKEY_LOCAL_MACHINE";
    return std::wstring(name) + L"\\" + subKey;
}

std::vector<SearchPlace> SearchList(const std::wstring& userIdentifier)
{
    std::vector<SearchPlace> places;
    if (!userIdentifier.empty())
        places.push_back({HKEY_USERS, userIdentifier + L"\\" + kSubKey});
    places.push_back({HKEY_CURRENT_USER, kSubKey});
    places.push_back({HKEY_LOCAL_MACHINE, kSubKey});
    return places;
}

RawValue ReadRaw(const std::wstring& name, DWORD type, const std::wstring& userIdentifier)
{
    for (SearchPlace& place : SearchList(userIdentifier))
    {
        const RegistryKey key(place);
        DWORD storedType = 0;
        DWORD size = 0;
        if (!key.Query(name, storedType, nullptr, size) || !IsWanted(storedType, type))
            continue;

        auto data = std::make_unique<std::byte[]>(size);
        if (key.Query(name, storedType, data.get(), size) && IsWanted(storedType, type))
            return {std::move(data), size, std::move(place)};
    }
    return {};
}

std::optional<FoundNumber> FindNumber(const std::wstring& name, const std::wstring& userIdentifier)
{
    RawValue value = ReadRaw(name, REG_DWORD, userIdentifier);
    DWORD number = 0;
    if (!value.data || value.size != sizeof number)
        return std::nullopt;
    std::memcpy(&number, value.data.get(), sizeof number);
    return FoundNumber{static_cast<std::int32_t>(number), std::move(value.place)};
}

std::int32_t ReadNumber(const std::wstring& name, std::int32_t defaultValue, const std::wstring& userIdentifier)
{
    const auto found = FindNumber(name, userIdentifier);
    return found ? found->value : defaultValue;
}

bool ReadFlag(const std::wstring& name, bool defaultValue, const std::wstring& userIdentifier)
{
    const auto found = FindNumber(name, userIdentifier);
    return found ? found->value != 0 : defaultValue;
}

std::wstring ReadText(const std::wstring& name, const std::wstring& defaultValue, const std::wstring& userIdentifier)
{
    const RawValue value = ReadRaw(name, REG_SZ, userIdentifier);
    if (!value.data)
        return defaultValue;
    std::wstring text = TextOf(value);
    // The registry may hold strings with or without a terminator.
    text.resize(std::wcslen(text.c_str()));
    return text;
}

std::vector<std::wstring> ReadTextList(const std::wstring& name, const std::wstring& userIdentifier)
{
    const RawValue value = ReadRaw(name, REG_MULTI_SZ, userIdentifier);
    std::vector<std::wstring> texts;
    if (!value.data)
        return texts;
    const std::wstring stored = TextOf(value);
    std::wstring_view rest = stored;
    while (!rest.empty() && rest.front() != L'\0')
    {
        texts.emplace_back(rest.substr(0, rest.find(L'\0')));
        rest.remove_prefix(std::min(rest.size(), texts.back().size() + 1));
    }
    return texts;
}

std::int32_t OncePerProcessNumber::Get()
{
    if (!m_isRead.load(std::memory_order_acquire))
    {
        m_value.store(ReadNumber(m_name, m_value.load(std::memory_order_relaxed)), std::memory_order_relaxed);
        m_isRead.store(true, std::memory_order_release);
    }
    return m_value.load(std::memory_order_relaxed);
}

} // namespace Settings
