#pragma once

/// @file
/// Easy handles of libcurl: one with the options that all requests over a connection share, and its copy for each request.

#include "../Secret.h"
#include "../WinHttp.h"

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Quendra::Platform
{

/// What an exchange sends.
struct TransferRequest
{
    SecretText url;
    std::string verb;
    std::vector<SecretText> headerLines;
    SecretText cookies;                      ///< "name=value; name=value", in addition to those that the server has set
    std::optional<std::uint64_t> bodyLength; ///< none: the request has no body and states no length
    int connectTimeout = 0;                  ///< milliseconds from the start to a connection, 0: no limit

    /// Whether sending it twice has the same effect as sending it once.
    bool IsRepeatable() const { return !bodyLength && (verb == "GET" || verb == "HEAD"); }
};

class EasyHandle
{
public:
    /// With the options that all requests share.
    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses an option
    EasyHandle();

    /// For one request: a copy of the common handle. Unlike a new handle it takes no lock of the process. It is not used for another
    /// request, because libcurl 7.88 keeps a pointer into the headers of a handle's last reply.
    /// @param isFresh  does not use a kept connection.
    /// @throws as above
    EasyHandle(const EasyHandle& common, const TransferRequest& request, CURLSH* share, bool isFresh);

    CURL* Get() const noexcept { return m_easy.get(); }

    /// curl's text for the error, or "".
    const char* ErrorText() const noexcept { return m_errorText.data(); }

    /// @throws std::bad_alloc, and std::runtime_error where libcurl refuses the option
    template <typename Value> void Set(CURLoption option, Value value)
    {
        const CURLcode result = curl_easy_setopt(m_easy.get(), option, value); // NOLINT(cppcoreguidelines-pro-type-vararg)
        if (result == CURLE_OUT_OF_MEMORY)
            throw std::bad_alloc();
        if (result != CURLE_OK)
            throw std::runtime_error(curl_easy_strerror(result));
    }

    /// A value of the exchange; 0 or null where curl has none.
    template <typename Value> Value Info(CURLINFO info) const noexcept
    {
        Value value = {};
        curl_easy_getinfo(m_easy.get(), info, &value); // NOLINT(cppcoreguidelines-pro-type-vararg)
        return value;
    }

private:
    struct EasyCleanup
    {
        void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    };
    struct ListCleanup
    {
        void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
    };

    void SetHeaders(const TransferRequest& request);
    void SetBody(const TransferRequest& request);

    std::array<char, CURL_ERROR_SIZE> m_errorText = {};
    std::unique_ptr<curl_slist, ListCleanup> m_headerLines;
    std::unique_ptr<CURL, EasyCleanup> m_easy; // destroyed before what it uses
};

/// curl's result as one of WinHTTP's error values.
/// @param isConnected  whether the request was being sent, or at least a connection was established.
/// @param text  curl's error text, or "".
[[nodiscard]] DWORD Win32ErrorOf(CURLcode result, bool isConnected, std::string_view text) noexcept;

} // namespace Quendra::Platform
