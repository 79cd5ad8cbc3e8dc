#pragma once

/// @file
/// Values under the library's registry key for the life of a test: in the registry itself on Windows, which a test must have for
/// itself (Wine's prefix), and in a file of the test's own on Linux.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class RegistryValues
{
public:
    enum class Root
    {
        User,
        Machine
    };

    RegistryValues();
    ~RegistryValues(); ///< Removes the library's key with everything in it.

    RegistryValues(const RegistryValues&) = delete;
    RegistryValues& operator=(const RegistryValues&) = delete;

    void SetNumber(Root root, const std::wstring& name, std::uint32_t value);
    void SetText(Root root, const std::wstring& name, const std::wstring& value);
    void SetExpandableText(Root root, const std::wstring& name, const std::wstring& value);
    void SetTextList(Root root, const std::wstring& name, const std::vector<std::wstring>& values);

private:
    class Store;
    std::unique_ptr<Store> m_store;
};
