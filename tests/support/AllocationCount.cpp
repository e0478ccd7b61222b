#include "tests/support/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> live{0};

} // namespace

std::size_t LiveAllocations() noexcept
{
    return live;
}

// The library's other forms of new and delete end in these.
void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++live;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr) {
        --live;
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
