#pragma once

/// @file
/// A request's own header lines, and the rules by which callers add to them.

#include "../Secret.h"
#include "../WinHttp.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Names are compared without regard to case. Text is UTF-8.
class RequestHeaders
{
public:
    /// Adds header lines, separated by CR LF, LF or CR, in the way that `WINHTTP_ADDREQ_FLAG_*` modifiers say. Empty lines
    /// are passed over. Lines before a failing one stay added.
    /// @return 0, 12150 (nothing to replace), 12153 (no header line) or 12155 (there already).
    DWORD AddLines(std::string_view lines, DWORD modifiers);

    /// The first header's value, or null.
    const SecretText* Find(std::string_view name) const;

    /// The lines as curl takes them, with those that curl would add of its own switched off. Neither the length of the body nor
    /// the cookies are among them: curl writes these lines.
    std::vector<SecretText> LinesForCurl() const;

    /// What the cookie headers say: "name=value; name=value".
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

/// Compares as names of headers are compared.
[[nodiscard]] bool EqualsIgnoringCase(std::string_view left, std::string_view right);

/// The number that a length header states; nothing where it states none.
[[nodiscard]] std::optional<std::uint64_t> ParseContentLength(std::string_view value);
