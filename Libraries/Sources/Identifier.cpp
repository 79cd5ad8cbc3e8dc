#include "Identifier.h"

#include "Platform/Platform.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace
{

constexpr std::string_view kForm = "00000000-0000-0000-0000-000000000000";

} // namespace

std::wstring IdentifierText(const Quendra::UploadId& id)
{
    std::array<wchar_t, kForm.size() + 3> text{}; // with braces and the terminator
    StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
    return std::wstring(text.data() + 1, kForm.size());
}

std::optional<Quendra::UploadId> ParseIdentifier(std::string_view text)
{
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    if (text.size() != kForm.size())
        return std::nullopt;
    std::string digits;
    for (std::size_t index = 0; index < kForm.size(); ++index)
    {
        const bool isHyphen = text[index] == '-';
        if (isHyphen != (kForm[index] == '-'))
            return std::nullopt;
        if (!isHyphen)
            digits += text[index];
    }
    if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return std::nullopt;
    const auto number = [&digits](std::size_t index, std::size_t count) { return std::stoul(digits.substr(index, count), nullptr, 16); };
    Quendra::UploadId id{};
    id.Data1 = static_cast<std::uint32_t>(number(0, 8));
    id.Data2 = static_cast<std::uint16_t>(number(8, 4));
    id.Data3 = static_cast<std::uint16_t>(number(12, 4));
    for (std::size_t index = 0; index < 8; ++index)
        id.Data4[index] = static_cast<std::uint8_t>(number(16 + 2 * index, 2));
    return id;
}
