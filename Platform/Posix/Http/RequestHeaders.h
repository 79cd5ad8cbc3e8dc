#pragma once

/// @file
/// A request's own header lines, and the rules for adding to them.

#include "../Secret.h"
#include "../WinHttp.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Quendra::Platform
{

/// Names are compared without regard to case. Text is UTF-8.
class RequestHeaders
{
public:
    /// Adds header lines, separated by CR LF, LF or CR, as the `WINHTTP_ADDREQ_FLAG_*` modifiers say. Empty lines are skipped. Lines before
    /// an invalid one stay added.
    /// @return 0, or ERROR_WINHTTP_HEADER_NOT_FOUND (nothing to replace), ERROR_WINHTTP_INVALID_HEADER (not a header line) or
    /// ERROR_WINHTTP_HEADER_ALREADY_EXISTS.
    DWORD AddLines(std::string_view lines, DWORD modifiers);

    /// The first header's value, or null.
    const SecretText* Find(std::string_view name) const;

    /// The lines in curl's form, including those that suppress headers that curl adds by default. Content-Length and Cookie are left out:
    /// curl writes them.
    std::vector<SecretText> LinesForCurl() const;

    /// The values of the cookie headers: "name=value; name=value".
    SecretText Cookies() const;

private:
    struct Header
    {
        std::string name;
        SecretText value;
    };

    DWORD Add(Header header, DWORD modifiers);
    std::vector<Header>::iterator Locate(std::string_view name);

    std::vector<Header> m_headers;
};

inline constexpr const char* kContentLength = "Content-Length";

/// Parses the value of a Content-Length header; nothing if it is not a number.
[[nodiscard]] std::optional<std::uint64_t> ParseContentLength(std::string_view value);

} // namespace Quendra::Platform
