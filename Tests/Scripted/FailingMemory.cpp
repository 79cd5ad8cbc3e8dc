// Memory that runs out. In a file of its own: a compiler that sees these and the tests together warns of mismatched allocations.

#include "PlatformSteps.h"

#include <cstdlib>
#include <new>

#if !defined(_WIN32)
extern "C"
{
    // The C library's own, and AddressSanitizer's where there is one: to look for them would allocate.
    void* __libc_malloc(size_t) noexcept;
    void* __libc_realloc(void*, size_t) noexcept;
    __attribute__((weak)) void* __interceptor_malloc(size_t) noexcept;
    __attribute__((weak)) void* __interceptor_realloc(void*, size_t) noexcept;

    __attribute__((visibility("default"))) void* malloc(size_t size) noexcept
    {
        const auto next = __interceptor_malloc != nullptr ? __interceptor_malloc : __libc_malloc;
        return IsToFail("malloc") ? nullptr : next(size);
    }

    __attribute__((visibility("default"))) void* realloc(void* block, size_t size) noexcept
    {
        const auto next = __interceptor_realloc != nullptr ? __interceptor_realloc : __libc_realloc;
        return IsToFail("realloc") ? nullptr : next(block, size);
    }
}
#endif

void* operator new(std::size_t size)
{
    const bool isToFail = IsToFail("new");
    const Uncounted pause;
    if (void* const block = isToFail ? nullptr : std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
