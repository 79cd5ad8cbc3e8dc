#include "RequestHeaders.h"

#include "../../Ascii.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace Quendra::Platform
{

namespace
{

constexpr const char* kCookie = "Cookie";

std::string_view Trim(std::string_view text)
{
    constexpr std::string_view kSpace = " \t";
    const auto first = std::min(text.find_first_not_of(kSpace), text.size());
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(kSpace) + 1);
}

} // namespace

DWORD RequestHeaders::AddLines(std::string_view lines, DWORD modifiers)
{
    if (lines.find('\0') != std::string_view::npos)
        return ERROR_WINHTTP_INVALID_HEADER;
    while (!lines.empty())
    {
        const auto end = std::min(lines.find_first_of("\r\n"), lines.size());
        const auto line = Trim(lines.substr(0, end));
        lines.remove_prefix(std::min(end + 1, lines.size()));
        if (line.empty())
            continue;
        const auto colon = line.find(':');
        if (colon == std::string_view::npos || colon == 0)
            return ERROR_WINHTTP_INVALID_HEADER;
        Header header{std::string(Trim(line.substr(0, colon))), SecretText(Trim(line.substr(colon + 1)))};
        if (const DWORD error = Add(std::move(header), modifiers); error != ERROR_SUCCESS)
            return error;
    }
    return ERROR_SUCCESS;
}

DWORD RequestHeaders::Add(Header header, DWORD modifiers)
{
    const auto has = [modifiers](DWORD flag) { return (modifiers & flag) != 0; };
    const auto existing = Locate(header.name);
    if (existing == m_headers.end())
    {
        if (has(WINHTTP_ADDREQ_FLAG_REPLACE) && !has(WINHTTP_ADDREQ_FLAG_ADD))
            return ERROR_WINHTTP_HEADER_NOT_FOUND;
        m_headers.push_back(std::move(header));
    }
    else if (has(WINHTTP_ADDREQ_FLAG_ADD_IF_NEW))
    {
        return ERROR_WINHTTP_HEADER_ALREADY_EXISTS;
    }
    else if (has(WINHTTP_ADDREQ_FLAG_REPLACE))
    {
        if (header.value.empty())
            m_headers.erase(existing);
        else
            *existing = std::move(header);
    }
    else if (has(WINHTTP_ADDREQ_FLAG_COALESCE_WITH_COMMA))
    {
        existing->value.append(", ").append(header.value);
    }
    else
    {
        m_headers.push_back(std::move(header));
    }
    return ERROR_SUCCESS;
}

std::vector<RequestHeaders::Header>::iterator RequestHeaders::Locate(std::string_view name)
{
    return std::find_if(m_headers.begin(), m_headers.end(),
                        [name](const Header& header) { return EqualIgnoringAsciiCase(header.name, name); });
}

const SecretText* RequestHeaders::Find(std::string_view name) const
{
    const auto found = std::find_if(m_headers.begin(), m_headers.end(),
                                    [name](const Header& header) { return EqualIgnoringAsciiCase(header.name, name); });
    return found == m_headers.end() ? nullptr : &found->value;
}

std::vector<SecretText> RequestHeaders::LinesForCurl() const
{
    std::vector<SecretText> lines;
    lines.reserve(m_headers.size() + 3);
    for (const auto& header : m_headers)
    {
        if (!EqualIgnoringAsciiCase(header.name, kContentLength) && !EqualIgnoringAsciiCase(header.name, kCookie))
        {
            // For curl, a name with a colon and no value removes the header; a name with a semicolon sends it with an empty value.
            lines.emplace_back(header.name).append(header.value.empty() ? ";" : ": ").append(header.value);
        }
    }
    for (const char* const name : {"Accept", "Expect", "Proxy-Connection"})
        if (Find(name) == nullptr)
            lines.emplace_back(name).append(":");
    return lines;
}

SecretText RequestHeaders::Cookies() const
{
    SecretText cookies;
    for (const auto& header : m_headers)
        if (EqualIgnoringAsciiCase(header.name, kCookie))
            cookies.append(cookies.empty() ? "" : "; ").append(header.value);
    return cookies;
}

std::optional<std::uint64_t> ParseContentLength(std::string_view value)
{
    std::uint64_t length = 0;
    const auto* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, length);
    // curl's lengths are signed.
    const bool fits = length <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return error == std::errc() && stop == end && fits ? std::optional(length) : std::nullopt;
}

} // namespace Quendra::Platform
