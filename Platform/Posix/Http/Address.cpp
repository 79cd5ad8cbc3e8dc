#include "Address.h"

#include "../../Ascii.h"
#include "CurlShare.h"

#include <curl/curl.h>

#include <algorithm>
#include <arpa/inet.h>
#include <clocale>
#include <memory>
#include <new>

namespace Quendra::Platform
{

namespace
{

bool IsIpv6(const std::string& text)
{
    in6_addr address = {};
    return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

struct UrlCleanup
{
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
struct TextCleanup
{
    void operator()(char* text) const noexcept { curl_free(text); }
};

// Sets the calling thread's locale to UTF-8 for its lifetime, whatever locale the process has set.
class Utf8Locale
{
public:
    Utf8Locale() : m_utf8(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), m_previous(::uselocale(m_utf8)) {}
    ~Utf8Locale()
    {
        ::uselocale(m_previous);
        if (m_utf8 != nullptr)
            ::freelocale(m_utf8);
    }

    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    const locale_t m_utf8;
    const locale_t m_previous;
};

// The ASCII form of an internationalised name, as it is resolved. libcurl reads the name in the locale's encoding.
std::optional<std::string> ToAsciiName(const std::string& name)
{
    StartCurl();
    const std::unique_ptr<CURLU, UrlCleanup> url(curl_url());
    if (!url)
        throw std::bad_alloc();
    const Utf8Locale locale;
    char* text = nullptr;
    if (curl_url_set(url.get(), CURLUPART_URL, ("http://" + name).c_str(), 0) != CURLUE_OK ||
        curl_url_get(url.get(), CURLUPART_HOST, &text, CURLU_PUNYCODE) != CURLUE_OK)
        return std::nullopt;
    const std::unique_ptr<char, TextCleanup> owned(text);
    return std::string(text);
}

// Whether the text contains a character that no host name in a URL may contain.
bool HasInvalidHostCharacter(std::string_view name)
{
    return std::any_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == '\x7F' ||
               std::string_view("\"#%/:<>?@[\\]^`{|}").find(c) != std::string_view::npos;
    });
}

bool IsAllowedInTarget(char character)
{
    constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,;=:@/?%";
    return kAllowed.find(character) != std::string_view::npos;
}

} // namespace

std::string Address::Origin() const
{
    return (secure ? "https://" : "http://") + host + ":" + std::to_string(port);
}

SecretText Address::Url() const
{
    const std::string origin = Origin();
    SecretText url;
    url.reserve(origin.size() + target.size());
    return url.append(origin).append(target);
}

std::optional<std::string> HostForUrl(std::string_view server)
{
    if (server.size() > 2 && server.front() == '[' && server.back() == ']')
        server = server.substr(1, server.size() - 2);
    const auto zone = std::min(server.find('%'), server.size());
    if (IsIpv6(std::string(server.substr(0, zone))))
    {
        // The percent sign before a zone is escaped in a URL.
        const auto name = zone == server.size() ? std::string() : "%25" + std::string(server.substr(zone + 1));
        const bool isZone = std::all_of(name.begin(), name.end(), IsAllowedInTarget) && name.find('/') == std::string::npos;
        return isZone ? std::optional("[" + std::string(server.substr(0, zone)) + name + "]") : std::nullopt;
    }
    if (server.empty() || HasInvalidHostCharacter(server))
        return std::nullopt;
    const auto name = IsAscii(server) ? std::optional(std::string(server)) : ToAsciiName(std::string(server));
    // Check again: the conversion turns full-width forms of '/', ':' and '@' into the ASCII ones, which could make the URL name another
    // host.
    return name && !HasInvalidHostCharacter(*name) ? name : std::nullopt;
}

SecretText TargetForPath(std::string_view path)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    SecretText target;
    target.reserve(path.size() + 1);
    if (path.empty() || path.front() != '/')
        target.push_back('/');
    for (const char character : path)
    {
        if (IsAllowedInTarget(character))
        {
            target.push_back(character);
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        target.push_back('%');
        target.push_back(kDigits[byte >> 4]);
        target.push_back(kDigits[byte & 0xFU]);
    }
    return target;
}

} // namespace Quendra::Platform
