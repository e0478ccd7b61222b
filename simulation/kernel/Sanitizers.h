// What the sanitizers have to be told when a fiber is left for another one. Nothing in other builds.
#pragma once

#include <cstddef>
#include <cstdint>

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
#if defined(SIMULATION_TSAN) // the build says so: the stand-in itself is compiled without it
#include <sanitizer/tsan_interface.h>
#include <sys/single_threaded.h>
extern "C" {
void __tsan_ignore_thread_begin();
void __tsan_ignore_thread_end();
}
#endif

namespace sim::sanitizer {

#if defined(SIMULATION_TSAN)
extern std::uint64_t g_tsanReports;
#endif

struct Root
{
    void* fakeStack = nullptr;
    const void* stack = nullptr;
    std::size_t stackSize = 0;
    void* fiber = nullptr;
};

inline void BeginRoot([[maybe_unused]] Root& root)
{
#if defined(SIMULATION_TSAN)
    root.fiber = __tsan_get_current_fiber();
    // Or the library counts references without atomics, having seen one thread only.
    __libc_single_threaded = 0;
#endif
}

inline std::uint64_t Reports() noexcept
{
#if defined(SIMULATION_TSAN)
    return g_tsanReports;
#else
    return 0;
#endif
}

inline void* CreateFiber()
{
#if defined(SIMULATION_TSAN)
    return __tsan_create_fiber(0);
#else
    return nullptr;
#endif
}

/// `kept`: where the left stack's state goes; null when that stack has ended. `stack`: null for the root's.
inline void BeforeSwitch([[maybe_unused]] const Root& root, [[maybe_unused]] void** kept,
                         [[maybe_unused]] const void* stack, [[maybe_unused]] std::size_t size,
                         [[maybe_unused]] void* fiber)
{
#if defined(SIMULATION_ASAN)
    __sanitizer_start_switch_fiber(kept, stack != nullptr ? stack : root.stack,
                                   stack != nullptr ? size : root.stackSize);
#endif
#if defined(SIMULATION_TSAN)
    // Without synchronisation: only what the simulated Windows promises orders two threads.
    __tsan_switch_to_fiber(fiber, __tsan_switch_to_fiber_no_sync);
#endif
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
inline void Forget([[maybe_unused]] const void* stack, [[maybe_unused]] std::size_t size,
                   [[maybe_unused]] void* fiber)
{
#if defined(SIMULATION_ASAN)
    __asan_unpoison_memory_region(stack, size);
#endif
#if defined(SIMULATION_TSAN)
    if (fiber != nullptr) {
        __tsan_destroy_fiber(fiber);
    }
#endif
}

inline void Acquire([[maybe_unused]] const void* what) noexcept
{
#if defined(SIMULATION_TSAN)
    __tsan_acquire(const_cast<void*>(what));
#endif
}

inline void Release([[maybe_unused]] const void* what) noexcept
{
#if defined(SIMULATION_TSAN)
    __tsan_release(const_cast<void*>(what));
#endif
}

inline void IgnoreBegin() noexcept
{
#if defined(SIMULATION_TSAN)
    __tsan_ignore_thread_begin();
#endif
}

inline void IgnoreEnd() noexcept
{
#if defined(SIMULATION_TSAN)
    __tsan_ignore_thread_end();
#endif
}

} // namespace sim::sanitizer
