// Registry values, read from a JSON file in place of the registry:
//
//     {
//         "HKEY_CURRENT_USER": {
//             "Software\\Ostvalen\\Quendra": {
//                 "Number": 5,                                               REG_DWORD, 0 to 4294967295
//                 "Text": "x",                                               REG_SZ
//                 "List": ["a", "b"],                                        REG_MULTI_SZ
//                 "Path": {"type": "REG_EXPAND_SZ", "data": "%HOME%/x"},     any type by its name
//                 "Bytes": {"type": "REG_BINARY", "data": "00ff"}
//             }
//         }
//     }
//
// HKEY_CURRENT_USER and HKEY_USERS are members of $XDG_CONFIG_HOME/quendra/registry.json (~/.config/quendra/registry.json
// where that variable is not set), HKEY_LOCAL_MACHINE of /etc/quendra/registry.json. Where the environment variable
// QUENDRA_REGISTRY is set, the file that it names stands for all three. A key is named by its whole path; key and value
// names are compared without regard to case. The file is read whenever a key is opened. A file that cannot be read or is
// malformed holds no keys, a value of a form not shown above is absent.

#include "CallGuard.h"
#include "HandleTable.h"
#include "Utf8.h"

#include <json/json.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace Quendra::Platform
{

namespace
{

// A larger file was not written by hand and is ignored.
constexpr std::uintmax_t kLargestFile = 1024 * 1024;

using Bytes = std::vector<BYTE>;

struct RegistryValue
{
    std::wstring name;
    DWORD type;
    Bytes data;
};

// An open key: its values as they were when it was opened.
struct RegistryKey
{
    std::vector<RegistryValue> values;
};

using RegistryKeys = HandleTable<RegistryKey>;

bool EqualsIgnoringCase(const std::wstring& left, const std::wstring& right)
{
    return CompareStringOrdinal(left.c_str(), static_cast<int>(left.size()), right.c_str(), static_cast<int>(right.size()), TRUE) ==
           CSTR_EQUAL;
}

const char* NameOf(HKEY root)
{
    return root == HKEY_CURRENT_USER    ? "HKEY_CURRENT_USER"
           : root == HKEY_USERS         ? "HKEY_USERS"
           : root == HKEY_LOCAL_MACHINE ? "HKEY_LOCAL_MACHINE"
                                        : nullptr;
}

// A value that is set and not empty.
const char* Environment(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing here writes the environment
    return value != nullptr && *value != '\0' ? value : nullptr;
}

// An empty path where there is no such place.
std::filesystem::path FileOf(HKEY root)
{
    if (const char* const file = Environment("QUENDRA_REGISTRY"))
        return file;
    if (root == HKEY_LOCAL_MACHINE)
        return "/etc/quendra/registry.json";
    const char* const configuration = Environment("XDG_CONFIG_HOME");
    if (configuration != nullptr && *configuration == '/') // a relative one is to be ignored
        return std::filesystem::path(configuration) / "quendra/registry.json";
    const char* const home = Environment("HOME");
    return home != nullptr ? std::filesystem::path(home) / ".config/quendra/registry.json" : std::filesystem::path();
}

// Null where there is no file or it is malformed.
Json::Value ReadFileOf(HKEY root)
{
    const auto path = FileOf(root);
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error) || std::filesystem::file_size(path, error) > kLargestFile)
        return {};
    std::ifstream stream(path, std::ios::binary);
    Json::Value document;
    std::string problems;
    return Json::parseFromStream(Json::CharReaderBuilder(), stream, &document, &problems) ? document : Json::Value();
}

void AppendText(const std::wstring& text, Bytes& data)
{
    const auto size = (text.size() + 1) * sizeof(wchar_t);
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    data.insert(data.end(), bytes, bytes + size);
}

std::optional<Bytes> NumberData(const Json::Value& value)
{
    // A number only: the conversion would take true for 1.
    if (!value.isNumeric() || !value.isUInt())
        return std::nullopt;
    const DWORD number = value.asUInt();
    Bytes data(sizeof(number));
    std::memcpy(data.data(), &number, sizeof(number));
    return data;
}

std::optional<Bytes> TextData(const Json::Value& value)
{
    if (!value.isString())
        return std::nullopt;
    Bytes data;
    AppendText(ToWideText(value.asString()), data);
    return data;
}

std::optional<Bytes> ListData(const Json::Value& value)
{
    if (!value.isArray() || !std::all_of(value.begin(), value.end(), [](const Json::Value& text) { return text.isString(); }))
        return std::nullopt;
    Bytes data;
    for (const auto& text : value)
        AppendText(ToWideText(text.asString()), data);
    AppendText({}, data);
    return data;
}

std::optional<Bytes> BinaryData(const Json::Value& value)
{
    constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
    const auto text = value.isString() ? value.asString() : std::string("?");
    if (text.size() % 2 != 0 || text.find_first_not_of(kHexDigits) != std::string::npos)
        return std::nullopt;
    Bytes data;
    for (std::size_t at = 0; at < text.size(); at += 2)
        data.push_back(static_cast<BYTE>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return data;
}

struct ValueType
{
    DWORD code;
    const char* name;
    std::optional<Bytes> (*data)(const Json::Value&);
};

constexpr ValueType kValueTypes[] = {{REG_DWORD, "REG_DWORD", NumberData},
                                     {REG_SZ, "REG_SZ", TextData},
                                     {REG_MULTI_SZ, "REG_MULTI_SZ", ListData},
                                     {REG_EXPAND_SZ, "REG_EXPAND_SZ", TextData},
                                     {REG_BINARY, "REG_BINARY", BinaryData}};

std::optional<RegistryValue> MakeValue(const std::string& name, const Json::Value& json)
{
    if (json.isObject())
    {
        for (const auto& type : kValueTypes)
        {
            if (json["type"] == type.name)
            {
                auto data = type.data(json["data"]);
                return data ? std::optional(RegistryValue{ToWideText(name), type.code, std::move(*data)}) : std::nullopt;
            }
        }
        return std::nullopt;
    }
    // Without a type name the JSON form decides: the first three types each have their own form.
    for (const auto& type : {kValueTypes[0], kValueTypes[1], kValueTypes[2]})
        if (auto data = type.data(json))
            return RegistryValue{ToWideText(name), type.code, std::move(*data)};
    return std::nullopt;
}

RegistryKey MakeKey(const Json::Value& json)
{
    RegistryKey key;
    for (auto at = json.begin(); at != json.end(); ++at)
        if (auto value = MakeValue(at.name(), *at))
            key.values.push_back(std::move(*value));
    return key;
}

// The key, or nothing where the file has none of that path. Malformed files throw or have no keys.
std::optional<RegistryKey> ReadKey(HKEY root, const std::wstring& path)
{
    const auto document = ReadFileOf(root);
    const auto keys = document.isObject() ? document[NameOf(root)] : Json::Value();
    if (!keys.isObject())
        return std::nullopt;
    for (auto at = keys.begin(); at != keys.end(); ++at)
        if (at->isObject() && EqualsIgnoringCase(ToWideText(at.name()), path))
            return MakeKey(*at);
    return std::nullopt;
}

// Copies the value's data to the caller as the registry does: without a buffer, only type and size are returned.
DWORD Deliver(const RegistryValue& value, DWORD* type, BYTE* data, DWORD* size)
{
    if (type != nullptr)
        *type = value.type;
    if (size == nullptr)
        return data == nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
    const auto capacity = *size;
    *size = static_cast<DWORD>(value.data.size());
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (capacity < value.data.size())
        return ERROR_MORE_DATA;
    std::copy(value.data.begin(), value.data.end(), data);
    return ERROR_SUCCESS;
}

} // namespace

LSTATUS RegOpenKeyExW(HKEY root, LPCWSTR subKey, DWORD /*options*/, REGSAM /*access*/, HKEY* key) noexcept
{
    if (key == nullptr)
        return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
    *key = nullptr;
    if (NameOf(root) == nullptr)
        return static_cast<LSTATUS>(ERROR_INVALID_HANDLE);
    const auto open = [&]() -> DWORD {
        auto found = ReadKey(root, subKey != nullptr ? subKey : L"");
        if (!found)
            return ERROR_FILE_NOT_FOUND;
        *key = static_cast<HKEY>(RegistryKeys::Instance().Insert(std::make_shared<RegistryKey>(std::move(*found))));
        return ERROR_SUCCESS;
    };
    // The JSON library throws on a malformed file. Such a file holds no keys.
    return static_cast<LSTATUS>(ErrorOf(open, ERROR_FILE_NOT_FOUND));
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size) noexcept
{
    if (reserved != nullptr)
        return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
    return static_cast<LSTATUS>(ErrorOf([&]() -> DWORD {
        const auto found = RegistryKeys::Instance().Find(key);
        if (!found)
            return ERROR_INVALID_HANDLE;
        const std::wstring wanted = name != nullptr ? name : L"";
        const auto value = std::find_if(found->values.begin(), found->values.end(),
                                        [&](const RegistryValue& candidate) { return EqualsIgnoringCase(candidate.name, wanted); });
        return value != found->values.end() ? Deliver(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
    }));
}

LSTATUS RegCloseKey(HKEY key) noexcept
{
    if (NameOf(key) != nullptr)
        return static_cast<LSTATUS>(ERROR_SUCCESS);
    return static_cast<LSTATUS>(
        ErrorOf([&]() -> DWORD { return RegistryKeys::Instance().Remove(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; }));
}

} // namespace Quendra::Platform
