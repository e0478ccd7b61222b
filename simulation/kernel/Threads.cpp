// Threads and time.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Objects.h"
#include "simulation/kernel/Requests.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"
#include "simulation/standin/process.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::uint64_t LongestHoldUs = 400'000; // Windows itself gives up after five minutes

void AbandonMutexes(const Fiber& fiber)
{
    for (const Ref<Object>& object : TheWorld().objects->handles) {
        if (object && object->kind == Object::Kind::Mutex) {
            auto& mutex = static_cast<MutexObject&>(*object);
            if (mutex.owner == fiber.id) {
                mutex.owner = -1;
                mutex.depth = 0;
                mutex.abandoned = true;
                Released(Current(), &mutex);
                Signal(mutex);
            }
        }
    }
}

void SignalEnd(const Ref<Object>& thread)
{
    static_cast<ThreadObject&>(*thread).ended = true;
    Released(Current(), thread.get());
    Signal(*thread);
}

} // namespace

void EndThread(Fiber& fiber)
{
    if (fiber.thread == nullptr) {
        return;
    }
    const Ref<Object> thread(fiber.thread);
    intrusive_ptr_release(fiber.thread);
    fiber.thread = nullptr;
    AbandonMutexes(fiber);
    CancelRequestsOf(fiber);
    // Until its requests have completed the thread has not ended for the threads that wait for it.
    if (HasRequests(fiber) && TheWorld().switches.Take(Switch::ThreadEndHeldBack)) {
        const std::uint64_t until = NowUs() + Random(LongestHoldUs);
        while (HasRequests(fiber) && NowUs() < until) {
            Block(TickUs, nullptr);
        }
    }
    SignalEnd(thread);
}

} // namespace sim

using namespace sim;

std::uintptr_t _beginthreadex(void* /*security*/, unsigned /*stack*/, unsigned (*body)(void*), void* argument,
                              unsigned flags, unsigned* id)
{
    Call call("_beginthreadex");
    if (flags != 0) {
        Fault("a thread with flags is not known here");
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY, ERROR_ACCESS_DENIED})) {
        return 0;
    }
    Fiber& fiber = StartFiber(nullptr);
    fiber.body = [body, argument] { body(argument); };
    Ref<Object> thread(new ThreadObject(fiber));
    fiber.thread = thread.get();
    intrusive_ptr_add_ref(fiber.thread);
    if (id != nullptr) {
        *id = static_cast<unsigned>(fiber.id) + 1;
    }
    const HANDLE handle = AddHandle(thread);
    Point("_beginthreadex done"); // the thread may run, even end, before the call returns
    return reinterpret_cast<std::uintptr_t>(handle);
}

void Sleep(DWORD milliseconds)
{
    Call call("Sleep");
    if (milliseconds != 0) {
        Block(TimeoutUs(milliseconds), nullptr);
    }
}

ULONGLONG GetTickCount64() noexcept
{
    const std::uint64_t now = NowUs();
    return (TheWorld().switches.Take(Switch::TicksAreCoarse) ? now / TickUs * TickUs : now) / 1000;
}

DWORD GetTickCount() noexcept
{
    return static_cast<DWORD>(GetTickCount64());
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* ticks) noexcept
{
    ticks->QuadPart = static_cast<LONGLONG>(NowUs());
    return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* ticksPerSecond) noexcept
{
    ticksPerSecond->QuadPart = 1'000'000;
    return TRUE;
}

void GetLocalTime(SYSTEMTIME* time) noexcept
{
    const std::uint64_t seconds = NowUs() / 1'000'000;
    *time = {2026,
             1,
             4,
             1,
             static_cast<WORD>(seconds / 3600 % 24),
             static_cast<WORD>(seconds / 60 % 60),
             static_cast<WORD>(seconds % 60),
             static_cast<WORD>(NowUs() / 1000 % 1000)};
}

BOOL SetThreadPriority(HANDLE thread, int /*priority*/)
{
    Call call("SetThreadPriority");
    if (thread == nullptr) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    ObjectOf(thread, Object::Kind::Thread);
    return TRUE;
}

DWORD GetCurrentThreadId() noexcept
{
    return static_cast<DWORD>(Current().id) + 1;
}

HANDLE GetCurrentProcess() noexcept
{
    return INVALID_HANDLE_VALUE;
}

BOOL CancelSynchronousIo(HANDLE handle)
{
    Call call("CancelSynchronousIo");
    Fiber& fiber = static_cast<ThreadObject&>(ObjectOf(handle, Object::Kind::Thread)).fiber;
    if (!fiber.blocksInFile || fiber.state != Fiber::State::Blocked) {
        return Call::Refuse(ERROR_NOT_FOUND);
    }
    Wake(fiber, ERROR_OPERATION_ABORTED);
    return TRUE;
}

DWORD GetLastError() noexcept
{
    return Current().lastError;
}

void SetLastError(DWORD error) noexcept
{
    Current().lastError = error;
}
