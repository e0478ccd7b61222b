// One simulated thread: a stack of its own and what the scheduler knows of it.
#pragma once

#include "simulation/standin/types.h"

#include <boost/context/detail/fcontext.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace sim {

struct Object;

inline constexpr std::uint64_t NeverUs = ~std::uint64_t{0};

/// Owned by the world; lives as long as the run.
struct Fiber
{
    enum class State { Runnable, Blocked, Done };

    int id = 0;
    std::function<void()> body;
    bool isProduct = false; // started by the product: only such threads meet injected faults
    bool isWatched = false; // ThreadSanitizer judges its accesses, but for those within calls
    int unwatched = 0;      // depth of what it looks away from
    State state = State::Runnable;
    std::uint64_t deadline = NeverUs;
    const void* blockedOn = nullptr; // a lock, a condition, a pipe; only compared
    std::vector<Object*> waits;      // or these objects
    DWORD result = 0;
    DWORD lastError = 0;
    int inKernel = 0;            // depth of stand-in calls: no fault strikes their own allocations
    Object* thread = nullptr;    // what its handle refers to
    bool cancelBlocking = false; // CancelSynchronousIo has marked the blocking call
    bool blocksInFile = false;   // in such a call
    bool lateRecheck = false;    // woken by a set that may have been undone
    const char* lastCall = "";   // for the report of a hang

    // The context, and what belongs to a real thread and is exchanged at each switch.
    char* stack = nullptr;
    boost::context::detail::fcontext_t context = nullptr;
    void* exceptions[2] = {nullptr, nullptr};
    void* fakeStack = nullptr;
    void* sanitizerFiber = nullptr;
};

/// A fresh stack for `fiber`, which begins with `entry` at the first switch. `fill`: the byte that its first
/// kilobytes hold, 0 for whatever was there.
void PrepareContext(Fiber& fiber, void (*entry)(), int fill);
/// Leaves the running context (`from`; null: the root) for `to` (null: the root).
void SwitchContext(Fiber* from, Fiber* to);
/// Gives the stack back. Of a run that was left in the middle the fiber's sanitizer state is kept.
void ReleaseContext(Fiber& fiber, bool hasEnded);
/// Around all of a run, on the root: before its first switch, and when it is over.
void BeginContexts();
void EndContexts();

/// For ThreadSanitizer: what a watched fiber did before Released is seen by another after Acquired. Others carry
/// nothing over: what a client does is no reason for two threads of the router to see the same.
void Acquired(const Fiber& fiber, const void* what) noexcept;
void Released(const Fiber& fiber, const void* what) noexcept;
/// The last word of a fiber: its stack is used again in the next run.
void StackIsFree(Fiber& fiber) noexcept;
/// How many data races it has reported in this process.
std::uint64_t RacesReported() noexcept;
/// ThreadSanitizer looks away. These nest.
void BeginUnwatched(Fiber& fiber) noexcept;
void EndUnwatched(Fiber& fiber) noexcept;

} // namespace sim
