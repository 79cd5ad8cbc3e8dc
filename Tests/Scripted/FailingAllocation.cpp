// In a file of its own: a compiler that sees these and the tests together warns of mismatched allocations.

#include "FailingAllocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

thread_local int t_allocationToFail = 0;

void* operator new(std::size_t size)
{
    if (t_allocationToFail == 0 || --t_allocationToFail > 0)
        if (void* const block = std::malloc(size == 0 ? 1 : size))
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
