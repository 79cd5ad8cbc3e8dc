#include "PathUtilities.h"

#include "Tracing.h"

#include "Platform/Platform.h"

#include <optional>
#include <string_view>

namespace
{

constexpr std::wstring_view kExtendedPrefix = L"\\\\?\\";

// Only the prefix of the native form differs from the extended form's, but a later "??" is replaced, too. Do not change it: callers compare
// paths that this function has returned.
std::wstring FromNativeForm(std::wstring path)
{
    constexpr std::wstring_view kMarks = L"??";
    for (std::size_t at = path.find(kMarks); at != std::wstring::npos; at = path.find(kMarks, at + kMarks.size()))
        path.replace(at, kMarks.size(), L"\\?");
    return path;
}

std::optional<std::wstring> ToExtendedForm(const std::wstring& path)
{
    if (path.starts_with(kExtendedPrefix))
        return path;
    if (path.starts_with(L"\\??\\"))
        return FromNativeForm(path);
    if (path.starts_with(L"\\\\"))
        return L"\\\\?\\UNC" + path.substr(1);
    if (path[1] == L':')
        return std::wstring(kExtendedPrefix) + path;
    return std::nullopt;
}

} // namespace

std::wstring PathUtilities::NormalizePath(const std::wstring& path)
{
    const FunctionTraceScope trace("PathUtilities::NormalizePath", Unit::PathUtilities);
    if (path.size() < 2)
        return path;
    std::optional<std::wstring> extended = ToExtendedForm(path);
    if (!extended)
    {
        trace.Error("Unknown path format [%S]", path);
        return path;
    }
    if (extended->back() == L'\\')
        extended->pop_back();
    return *std::move(extended);
}

std::wstring PathUtilities::MakeAbsolute(const std::wstring& path)
{
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring absolute(size, L'\0');
    const DWORD length = size == 0 ? 0 : GetFullPathNameW(path.c_str(), size, absolute.data(), nullptr);
    if (length == 0 || length >= size)
        return path;
    absolute.resize(length);
    return absolute;
}
