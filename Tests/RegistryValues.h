#pragma once

/// @file
/// Values under the library's registry key for the life of a test: in the registry on Windows (one such test at a time, with
/// rights to write to all three places), in a file of the test's own on Linux. Nobody's own values are touched.

#include <json/value.h>

#include <string>

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

    /// @param value  a number, a text, an array of texts (REG_MULTI_SZ) or {"type":"REG_EXPAND_SZ","data":text}.
    static void Set(Root root, const std::string& name, const Json::Value& value);
};
