#pragma once

/// @file
/// libcurl in this process, and what the requests of a session have in common there.

#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>

/// Starts libcurl, once per process, with memory that is overwritten before it is given back.
/// @throws std::bad_alloc
void StartCurl();

/// The cookies that servers have set, the names that were resolved and the TLS sessions that can be resumed. Easy handles on
/// any threads may use it at the same time; it outlives them.
class CurlShare
{
public:
    /// @throws std::bad_alloc
    CurlShare();

    CurlShare(const CurlShare&) = delete;
    CurlShare& operator=(const CurlShare&) = delete;

    CURLSH* Get() const noexcept { return m_share.get(); }

private:
    struct Cleanup
    {
        void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
    };

    static void Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) noexcept;
    static void Unlock(CURL*, curl_lock_data data, void* self) noexcept;

    std::array<std::mutex, CURL_LOCK_DATA_LAST> m_locks;
    std::unique_ptr<CURLSH, Cleanup> m_share;
};
