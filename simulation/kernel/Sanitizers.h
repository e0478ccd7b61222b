// What the sanitizers have to be told when a fiber is left for another one. Nothing in other builds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define SIMULATION_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIMULATION_ASAN 1
#endif
#endif

#if defined(SIMULATION_ASAN)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif
#include <sanitizer/tsan_interface.h>
#include <sys/single_threaded.h>
extern "C" {
void __tsan_ignore_thread_begin();
void __tsan_ignore_thread_end();
}

// ThreadSanitizer watches the product alone, so the stand-in is compiled once: whether its run-time library is
// there shows when the program is linked.
#pragma weak __tsan_acquire
#pragma weak __tsan_release
#pragma weak __tsan_create_fiber
#pragma weak __tsan_get_current_fiber
#pragma weak __tsan_switch_to_fiber
#pragma weak __tsan_set_fiber_name
#pragma weak __tsan_ignore_thread_begin
#pragma weak __tsan_ignore_thread_end

namespace sim::sanitizer {

extern std::uint64_t g_tsanReports;
extern std::vector<void*> g_tsanFibers; // that have ended

inline bool HasTsan() noexcept
{
    return &__tsan_acquire != nullptr;
}

struct Root
{
    void* fakeStack = nullptr;
    const void* stack = nullptr;
    std::size_t stackSize = 0;
    void* fiber = nullptr;
};

inline void BeginRoot(Root& root)
{
    if (HasTsan()) {
        root.fiber = __tsan_get_current_fiber();
        // Or the library counts references without atomics, having seen one thread only.
        __libc_single_threaded = 0;
    }
}

/// Those that have ended are taken again, for a new one costs a millisecond. What is accessed is still judged by
/// threads of the simulation: nothing of a run is unordered to the next.
inline void* CreateFiber(int id)
{
    if (!HasTsan()) {
        return nullptr;
    }
    if (g_tsanFibers.empty()) {
        g_tsanFibers.push_back(__tsan_create_fiber(0));
    }
    void* const fiber = g_tsanFibers.back();
    g_tsanFibers.pop_back();
    __tsan_set_fiber_name(fiber, ("simulated thread " + std::to_string(id)).c_str());
    return fiber;
}

/// `kept`: where the left stack's state goes; null when that stack has ended. `stack`: null for the root's.
inline void BeforeSwitch([[maybe_unused]] const Root& root, [[maybe_unused]] void** kept,
                         [[maybe_unused]] const void* stack, [[maybe_unused]] std::size_t size, void* fiber)
{
#if defined(SIMULATION_ASAN)
    __sanitizer_start_switch_fiber(kept, stack != nullptr ? stack : root.stack,
                                   stack != nullptr ? size : root.stackSize);
#endif
    if (HasTsan()) {
        // Without synchronisation: only what the simulated Windows promises orders two threads.
        __tsan_switch_to_fiber(fiber, __tsan_switch_to_fiber_no_sync);
    }
}

inline void AfterSwitch([[maybe_unused]] void* kept)
{
#if defined(SIMULATION_ASAN)
    __sanitizer_finish_switch_fiber(kept, nullptr, nullptr);
#endif
}

/// On a stack of its own for the first time; the first fiber of all comes from the root.
inline void FirstEntered([[maybe_unused]] Root& root)
{
#if defined(SIMULATION_ASAN)
    const void* bottom = nullptr;
    std::size_t size = 0;
    __sanitizer_finish_switch_fiber(nullptr, &bottom, &size);
    if (root.stack == nullptr) {
        root.stack = bottom;
        root.stackSize = size;
    }
#endif
}

/// The stack will be another fiber's.
inline void Forget([[maybe_unused]] const void* stack, [[maybe_unused]] std::size_t size, void* fiber)
{
#if defined(SIMULATION_ASAN)
    __asan_unpoison_memory_region(stack, size);
#endif
    if (fiber != nullptr) {
        g_tsanFibers.push_back(fiber);
    }
}

inline void Acquire(const void* what) noexcept
{
    if (HasTsan()) {
        __tsan_acquire(const_cast<void*>(what));
    }
}

inline void Release(const void* what) noexcept
{
    if (HasTsan()) {
        __tsan_release(const_cast<void*>(what));
    }
}

inline void IgnoreBegin() noexcept
{
    if (HasTsan()) {
        __tsan_ignore_thread_begin();
    }
}

inline void IgnoreEnd() noexcept
{
    if (HasTsan()) {
        __tsan_ignore_thread_end();
    }
}

} // namespace sim::sanitizer
