#include "tests/unit/firmware/AllocationLimit.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

std::atomic<std::size_t> largest{std::numeric_limits<std::size_t>::max()};

} // namespace

AllocationLimit::AllocationLimit(std::size_t bytes) noexcept
{
    largest = bytes;
}

AllocationLimit::~AllocationLimit()
{
    largest = std::numeric_limits<std::size_t>::max();
}

// The library's other forms of new and delete end in these.
void* operator new(std::size_t size)
{
    void* const memory = size <= largest ? std::malloc(size != 0 ? size : 1) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
