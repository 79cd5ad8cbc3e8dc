#include "CurlShare.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

namespace Quendra::Platform
{

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are malloc and its kind for libcurl
namespace
{

// Wipes a block up to the first page that holds zeros alone. curl fills its large buffers from the beginning, and a buffer usually gets
// the memory of the one before it, which was wiped: the rest need not be written again for each request.
void Wipe(void* memory)
{
    constexpr std::size_t kPage = 4096;
    auto* page = static_cast<char*>(memory);
    const auto isZero = [](const char* bytes, std::size_t count) { return *bytes == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0; };
    for (std::size_t left = ::malloc_usable_size(memory); left != 0;)
    {
        const std::size_t count = std::min(left, kPage);
        if (page != memory && isZero(page, count))
            return;
        ::explicit_bzero(page, count);
        page += count;
        left -= count;
    }
}

void Free(void* memory)
{
    if (memory != nullptr)
    {
        Wipe(memory);
        std::free(memory);
    }
}

void* Reallocate(void* memory, std::size_t size)
{
    const std::size_t usable = ::malloc_usable_size(memory);
    if (memory != nullptr && size <= usable)
        return memory;
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
        throw std::bad_alloc();
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
        throw std::bad_alloc();
}

void CurlShare::Lock(CURL*, curl_lock_data data, curl_lock_access, void* self) noexcept
{
    static_cast<CurlShare*>(self)->m_locks[data].lock();
}

void CurlShare::Unlock(CURL*, curl_lock_data data, void* self) noexcept
{
    static_cast<CurlShare*>(self)->m_locks[data].unlock();
}

} // namespace Quendra::Platform
