#include "simulation/kernel/Memory.h"

#include "simulation/kernel/Requests.h"
#include "simulation/kernel/Sanitizers.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/World.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace sim {

namespace {

constexpr std::uint64_t RarerThanCalls = 8; // there are so many more allocations

std::size_t g_blocks = 0;

bool IsProductAtWork() noexcept
{
    return IsRunning() && Current().isProduct && Current().inKernel == 0;
}

bool Fails()
{
    if (!IsProductAtWork()) {
        return false;
    }
    World& world = TheWorld();
    const std::uint64_t ordinal = ++world.outcome.productCalls;
    if (world.options.keepsCalls) {
        const OwnMemory own;
        world.outcome.calls.push_back({"operator new", 1});
    }
    const Injection& injection = world.options.injection;
    const bool fails = injection.call != 0 ? injection.call == ordinal && injection.error == 0
                                           : OneIn(world.faultOneIn * RarerThanCalls);
    if (fails) {
        const OwnMemory own;
        ++world.outcome.injectedFaults;
        world.outcome.injectedInto = "operator new";
        Note("injected: operator new fails");
    }
    return fails;
}

} // namespace

std::size_t BlocksInUse() noexcept
{
    return g_blocks;
}

// A text of up to 15 characters stands in the object itself.
std::size_t Outcome::OwnBlocks() const
{
    std::size_t blocks = lastEvents.capacity() != 0 ? 1 : 0;
    for (const std::string& event : lastEvents) {
        blocks += event.capacity() > 15 ? 1 : 0;
    }
    blocks += (calls.capacity() != 0 ? 1 : 0) + (replugAnswerUs.capacity() != 0 ? 1 : 0);
    return blocks + (injectedInto.capacity() > 15 ? 1 : 0) + (fault.capacity() > 15 ? 1 : 0);
}

OwnMemory::OwnMemory() noexcept
{
    ++Current().inKernel;
    BeginUnwatched(Current());
}

OwnMemory::~OwnMemory()
{
    EndUnwatched(Current());
    --Current().inKernel;
}

Watched::Watched() noexcept
{
    Current().isWatched = true;
    EndUnwatched(Current());
}

Watched::~Watched()
{
    BeginUnwatched(Current());
    Current().isWatched = false;
}

ProductAtWork::ProductAtWork() noexcept
{
    Current().isProduct = true;
}

ProductAtWork::~ProductAtWork()
{
    Current().isProduct = false;
}

} // namespace sim

void* operator new(std::size_t size)
{
    void* const memory = sim::Fails() ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++sim::g_blocks;
    if (sim::IsRunning() && sim::TheOptions().stackFill != 0) {
        std::memset(memory, sim::TheOptions().stackFill, size);
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory == nullptr) {
        return;
    }
    if (sim::IsProductAtWork()) {
        const std::size_t size = ::malloc_usable_size(memory);
        if (sim::IsLent(memory, size)) {
            sim::Fault("memory of a pending request is freed");
        }
        sim::ForgetRecords(memory, size);
    }
    --sim::g_blocks;
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

// A sanitizer's own forms of these would not come here, and a run would not be the same under it.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

#if defined(SIMULATION_ASAN)
// A run counts its blocks by itself, and by design those that a driver keeps are never freed. A run is short and
// can be repeated: with ASAN_OPTIONS=malloc_context_size=30 for instance.
extern "C" const char* __asan_default_options()
{
    return "detect_leaks=0:malloc_context_size=2:quarantine_size_mb=16";
}
#endif
