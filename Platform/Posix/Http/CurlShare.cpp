#include "CurlShare.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are malloc and its kind for libcurl
namespace
{
/// How much of a block is wiped. Secrets stand in heads and forms, at the beginning of curl's larger buffers.
constexpr std::size_t kWipedBytes = 64 * 1024;

void Free(void* memory)
{
    if (memory != nullptr)
    {
        ::explicit_bzero(memory, std::min(::malloc_usable_size(memory), kWipedBytes));
        std::free(memory);
    }
}

void* Reallocate(void* memory, std::size_t size)
{
    const std::size_t usable = ::malloc_usable_size(memory);
    if (memory != nullptr && size <= usable)
    {
        return memory;
    }
    void* const grown = std::malloc(size);
    if (grown != nullptr && memory != nullptr)
    {
        std::memcpy(grown, memory, usable);
        Free(memory);
    }
    return grown;
}
} // namespace

void StartCurl()
{
    // A static's initialisation is thread-safe.
    static const CURLcode result = curl_global_init_mem(CURL_GLOBAL_ALL, &std::malloc, &Free, &Reallocate, &::strdup, &std::calloc);
    if (result != CURLE_OK)
    {
        throw std::bad_alloc();
    }
}
// NOLINTEND(cppcoreguidelines-no-malloc)

CurlShare::CurlShare()
{
    StartCurl();
    m_share.reset(curl_share_init());
    // NOLINTBEGIN(cppcoreguidelines-pro-type-vararg): libcurl's functions are variadic
    const auto set = [this](CURLSHoption option, auto value) { return curl_share_setopt(m_share.get(), option, value) == CURLSHE_OK; };
    // NOLINTEND(cppcoreguidelines-pro-type-vararg)
    if (!m_share || !set(CURLSHOPT_LOCKFUNC, &CurlShare::Lock) || !set(CURLSHOPT_UNLOCKFUNC, &CurlShare::Unlock) ||
        !set(CURLSHOPT_USERDATA, static_cast<void*>(this)) || !set(CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE) ||
        !set(CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS) || !set(CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION))
    {
        throw std::bad_alloc();
    }
}

void CurlShare::Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) noexcept
{
    static_cast<CurlShare*>(self)->m_locks[data].lock();
}

void CurlShare::Unlock(CURL*, curl_lock_data data, void* self) noexcept
{
    static_cast<CurlShare*>(self)->m_locks[data].unlock();
}
