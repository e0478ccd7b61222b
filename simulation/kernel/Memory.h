// The memory of a run: counted, refused when a fault says so, and looked after while Windows may still write to
// it.
#pragma once

#include <cstddef>

namespace sim {

/// Blocks that were allocated and not freed, over the whole process.
std::size_t BlocksInUse() noexcept;

/// While one of these lives on a fiber no allocation of it fails: the stand-in's and the scenario's own.
class OwnMemory
{
public:
    OwnMemory() noexcept;
    ~OwnMemory();
    OwnMemory(const OwnMemory&) = delete;
    OwnMemory& operator=(const OwnMemory&) = delete;
};

} // namespace sim
