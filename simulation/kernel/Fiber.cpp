#include "simulation/kernel/Fiber.h"

#include "simulation/kernel/Sanitizers.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace sim {

namespace {

using boost::context::detail::fcontext_t;
using boost::context::detail::transfer_t;

constexpr std::size_t GuardSize = 4096;
constexpr std::size_t StackSize = std::size_t{256} * 1024;
constexpr std::size_t FilledSize = std::size_t{32} * 1024;

std::vector<char*> g_freeStacks;
fcontext_t g_rootContext = nullptr;
void* g_rootExceptions[2] = {nullptr, nullptr};
sanitizer::Root g_root;
void (*g_entry)() = nullptr;

char* TakeStack()
{
    if (g_freeStacks.empty()) {
        void* const memory = ::mmap(nullptr, GuardSize + StackSize, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        ::mprotect(memory, GuardSize, PROT_NONE);
        g_freeStacks.push_back(static_cast<char*>(memory));
    }
    char* const stack = g_freeStacks.back();
    g_freeStacks.pop_back();
    return stack;
}

fcontext_t& ContextOf(void* fiber)
{
    return fiber != nullptr ? static_cast<Fiber*>(fiber)->context : g_rootContext;
}

void Enter(transfer_t transfer)
{
    ContextOf(transfer.data) = transfer.fctx;
    sanitizer::FirstEntered(g_root);
    sanitizer::Acquire(&g_root); // all of the run before
    g_entry();
    std::abort();
}

// What the language keeps of exceptions in flight belongs to the real thread, of which there is one. Without the
// exchange a rethrown exception would be another fiber's.
void ExchangeExceptions(void** kept, const void* const* next)
{
    void** const globals = reinterpret_cast<void**>(abi::__cxa_get_globals());
    std::memcpy(kept, globals, sizeof(void*) + sizeof(unsigned));
    std::memcpy(globals, next, sizeof(void*) + sizeof(unsigned));
}

} // namespace

void BeginContexts()
{
    sanitizer::BeginRoot(g_root);
    sanitizer::IgnoreBegin();
    sanitizer::Release(&g_root);
}

void EndContexts()
{
    sanitizer::Acquire(&g_freeStacks);
    sanitizer::IgnoreEnd();
}

void PrepareContext(Fiber& fiber, void (*entry)(), int fill)
{
    g_entry = entry;
    fiber.stack = TakeStack();
    if (fill != 0) {
        std::memset(fiber.stack + GuardSize + StackSize - FilledSize, fill, FilledSize);
    }
    fiber.sanitizerFiber = sanitizer::CreateFiber(fiber.id);
    fiber.context = boost::context::detail::make_fcontext(fiber.stack + GuardSize + StackSize, StackSize, Enter);
}

void SwitchContext(Fiber* from, Fiber* to)
{
    ExchangeExceptions(from != nullptr ? from->exceptions : g_rootExceptions,
                       to != nullptr ? to->exceptions : g_rootExceptions);
    const bool dying = from != nullptr && from->state == Fiber::State::Done;
    void** const kept = from != nullptr ? &from->fakeStack : &g_root.fakeStack;
    sanitizer::BeforeSwitch(g_root, dying ? nullptr : kept, to != nullptr ? to->stack + GuardSize : nullptr,
                            StackSize, to != nullptr ? to->sanitizerFiber : g_root.fiber);
    const transfer_t transfer = boost::context::detail::jump_fcontext(ContextOf(to), from);
    ContextOf(transfer.data) = transfer.fctx;
    sanitizer::AfterSwitch(*kept);
}

void ReleaseContext(Fiber& fiber, bool hasEnded)
{
    sanitizer::Forget(fiber.stack + GuardSize, StackSize, hasEnded ? fiber.sanitizerFiber : nullptr);
    g_freeStacks.push_back(fiber.stack);
    fiber.stack = nullptr;
}

void Acquired(const Fiber& fiber, const void* what) noexcept
{
    if (fiber.isWatched) {
        sanitizer::Acquire(what);
    }
}

void Released(const Fiber& fiber, const void* what) noexcept
{
    if (fiber.isWatched) {
        sanitizer::Release(what);
    }
}

void StackIsFree(Fiber& fiber) noexcept
{
    sanitizer::Release(&g_freeStacks);
    while (fiber.unwatched > 0) {
        EndUnwatched(fiber);
    }
}

std::uint64_t RacesReported() noexcept
{
    return sanitizer::g_tsanReports;
}

// Once a fiber, whatever the depth: the library keeps the stack of each beginning, which takes long.
void BeginUnwatched(Fiber& fiber) noexcept
{
    if (fiber.unwatched++ == 0) {
        sanitizer::IgnoreBegin();
    }
}

void EndUnwatched(Fiber& fiber) noexcept
{
    if (--fiber.unwatched == 0) {
        sanitizer::IgnoreEnd();
    }
}

} // namespace sim

std::uint64_t sim::sanitizer::g_tsanReports = 0;
std::vector<void*> sim::sanitizer::g_tsanFibers;

// Its run-time library calls this with each report.
extern "C" void __tsan_on_report(void* /*report*/)
{
    ++sim::sanitizer::g_tsanReports;
}

// A race is told of in each run that has it, so that a run can be repeated. The exit code is that of any fault.
extern "C" const char* __tsan_default_options()
{
    return "suppress_equal_stacks=0:suppress_equal_addresses=0:exitcode=1";
}
