// What the tests set of hooks; apart from the hooks, because the simulated Windows has no import library to step
// into.
#include "tests/unit/transport/Hooks.h"

namespace hooks {

thread_local int naps = 0;
std::atomic<bool> shortNaps{false};
std::atomic<int> refusedWrites{0};
std::atomic<bool> writesWithoutEvent{false};
std::atomic<bool> readsWithoutEvent{false};
std::atomic<int> refusedThreads{0};
std::atomic<int> throttlingCleared{0};

HANDLE WINAPI RefuseEvent(SECURITY_ATTRIBUTES* /*security*/, BOOL /*manual*/, BOOL /*set*/,
                          const wchar_t* /*name*/)
{
    return nullptr;
}

} // namespace hooks
