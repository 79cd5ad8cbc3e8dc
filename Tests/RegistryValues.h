#pragma once

/// @file
/// Values under the library's registry key for the life of a test: in the registry on Windows (one such test at a time, with
/// rights to write to all three places), in a file of the test's own on Linux. Nobody's own values are touched.

#include <cstdint>
#include <string>
#include <vector>

class RegistryValues
{
public:
    enum class Root
    {
        User,
        Machine,
        OtherUser ///< HKEY_USERS\S-1-5-21-7
    };

    RegistryValues();
    ~RegistryValues();

    RegistryValues(const RegistryValues&) = delete;
    RegistryValues& operator=(const RegistryValues&) = delete;

    static void SetNumber(Root root, const std::wstring& name, std::uint32_t value);
    static void SetText(Root root, const std::wstring& name, const std::wstring& value, bool isExpandable = false);
    static void SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values);
};
