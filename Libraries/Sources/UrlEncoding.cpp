#include "UrlEncoding.h"

#include "TextConversion.h"
#include "Wiping.h"

namespace
{

bool IsKept(char byte, UrlEncodingMode mode)
{
    constexpr std::string_view kAlways = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._";
    constexpr std::string_view kInPaths = "/~";
    return kAlways.find(byte) != std::string_view::npos || (mode == UrlEncodingMode::Path && kInPaths.find(byte) != std::string_view::npos);
}

} // namespace

std::string EncodeUrl(std::wstring_view text, UrlEncodingMode mode)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string bytes = ToNarrow(text);
    const ScopedWipe wipeBytes(bytes); // forms hold passwords
    std::string encoded;
    encoded.reserve(bytes.size() * 3);
    for (const char byte : bytes)
    {
        const auto value = static_cast<unsigned char>(byte);
        if (mode == UrlEncodingMode::Form && byte == ' ')
            encoded += '+';
        else if (IsKept(byte, mode))
            encoded += byte;
        else
            encoded.append({'%', kDigits[value >> 4U], kDigits[value & 0xFU]});
    }
    return encoded;
}
