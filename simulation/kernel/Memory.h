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

/// While one of these lives on a fiber that is not the product's, ThreadSanitizer watches it: code of the product
/// is called.
class Watched
{
public:
    Watched() noexcept;
    ~Watched();
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
};

/// The product at work on a thread of the scenario: faults strike its calls.
class ProductAtWork
{
public:
    ProductAtWork() noexcept;
    ~ProductAtWork();

private:
    const Watched m_watched;
};

} // namespace sim
