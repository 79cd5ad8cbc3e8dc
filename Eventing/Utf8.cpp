#include "Utf8.h"

#include "Platform/Platform.h"

#include <climits>

#include <cstddef>
#include <new>

namespace Eventing
{
namespace
{

// No character of either form takes more than four of the other.
constexpr int kExpansion = 4;

int CheckedSize(std::size_t size)
{
    if (size > INT_MAX / kExpansion)
        throw std::bad_alloc();
    return static_cast<int>(size);
}

} // namespace

std::string ToUtf8(std::wstring_view text)
{
    const int length = CheckedSize(text.size());
    std::string result(text.size() * kExpansion, '\0');
    if (length > 0)
        result.resize(static_cast<std::size_t>(
            WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), length * kExpansion, nullptr, nullptr)));
    return result;
}

std::wstring FromUtf8(std::string_view text)
{
    const int length = CheckedSize(text.size());
    std::wstring result(text.size(), L'\0');
    if (length > 0)
        result.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), length)));
    return result;
}

} // namespace Eventing
