#include "Identifier.h"

#include "Failures.h"

#include "Platform/Platform.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>

namespace
{

constexpr char kDigits[] = "0123456789ABCDEF";
constexpr std::size_t kBytes = 16;

// The bytes in the order of the text.
using Bytes = std::array<std::uint8_t, kBytes>;

constexpr bool HyphenStandsBefore(std::size_t byte)
{
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

Bytes ToBytes(const GUID& id)
{
    const auto byteOf = [](std::uint32_t value, unsigned shift) { return static_cast<std::uint8_t>(value >> shift); };
    Bytes bytes = {byteOf(id.Data1, 24), byteOf(id.Data1, 16), byteOf(id.Data1, 8), byteOf(id.Data1, 0),
                   byteOf(id.Data2, 8),  byteOf(id.Data2, 0),  byteOf(id.Data3, 8), byteOf(id.Data3, 0)};
    for (std::size_t index = 0; index < 8; ++index)
        bytes[8 + index] = id.Data4[index];
    return bytes;
}

GUID FromBytes(const Bytes& bytes)
{
    const auto pair = [&bytes](std::size_t index) { return static_cast<std::uint16_t>(bytes[index] << 8 | bytes[index + 1]); };
    GUID id{};
    id.Data1 = static_cast<std::uint32_t>(pair(0)) << 16 | pair(2);
    id.Data2 = pair(4);
    id.Data3 = pair(6);
    for (std::size_t index = 0; index < 8; ++index)
        id.Data4[index] = bytes[8 + index];
    return id;
}

} // namespace

std::string IdentifierText(const GUID& id)
{
    const Bytes bytes = ToBytes(id);
    std::string text;
    for (std::size_t index = 0; index < kBytes; ++index)
    {
        if (HyphenStandsBefore(index))
            text += '-';
        text += kDigits[bytes[index] >> 4];
        text += kDigits[bytes[index] & 0xF];
    }
    return text;
}

std::optional<GUID> ParseIdentifier(std::string_view text)
{
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    Bytes bytes{};
    for (std::size_t index = 0; index < kBytes; ++index)
    {
        if (HyphenStandsBefore(index))
        {
            if (!text.starts_with('-'))
                return std::nullopt;
            text.remove_prefix(1);
        }
        if (text.size() < 2)
            return std::nullopt;
        const auto [end, error] = std::from_chars(text.data(), text.data() + 2, bytes[index], 16);
        if (error != std::errc() || end != text.data() + 2)
            return std::nullopt;
        text.remove_prefix(2);
    }
    return text.empty() ? std::optional(FromBytes(bytes)) : std::nullopt;
}

GUID MakeIdentifier()
{
    GUID id{};
    if (CoCreateGuid(&id) < 0)
        throw ProgramError("The system gives no identifier for the upload");
    return id;
}
