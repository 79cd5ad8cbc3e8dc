#pragma once

/// @file
/// Starts libcurl, and holds what the requests of a session share.

#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>

namespace Quendra::Platform
{

/// Starts libcurl, once per process, with memory functions that overwrite memory before they free it.
/// @throws std::bad_alloc
void StartCurl();

/// Shares cookies, resolved names and resumable TLS sessions between easy handles on any threads. Must outlive the handles.
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

} // namespace Quendra::Platform
