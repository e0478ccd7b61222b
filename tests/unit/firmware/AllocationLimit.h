// Memory that runs out.
#pragma once

#include <cstddef>

/// While it lives, an allocation of more than `bytes` by any thread fails as if there were no memory for it. One
/// at a time.
class AllocationLimit
{
public:
    explicit AllocationLimit(std::size_t bytes) noexcept;
    ~AllocationLimit();
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};
