// Apart from the tests, so that no compiler sees both ends of an allocation and takes them for a mismatch.

#include "FailingAllocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

thread_local int t_remaining = 0; // 0: none fails
thread_local bool t_hasFailed = false;

void* Allocate(std::size_t size) noexcept
{
    if (t_remaining > 0 && --t_remaining == 0)
    {
        t_hasFailed = true;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

FailingAllocation::FailingAllocation(int n)
{
    t_remaining = n;
    t_hasFailed = false;
}

FailingAllocation::~FailingAllocation()
{
    t_remaining = 0;
}

bool FailingAllocation::HasFailed() const
{
    return t_hasFailed;
}

void* operator new(std::size_t size)
{
    if (void* const block = Allocate(size))
        return block;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
