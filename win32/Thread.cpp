#include "win32/Thread.h"

#include <process.h>
#include <array>
#include <utility>

namespace win32 {

namespace {

constexpr DWORD TimeBetweenCancelsMs = 10;

struct Argument
{
    std::function<void()> body;
    std::shared_ptr<Event> ended;
};

unsigned __stdcall Enter(void* argument) noexcept
{
    const std::unique_ptr<Argument> owned(static_cast<Argument*>(argument));
    try {
        std::exchange(owned->body, nullptr)(); // destroyed with all that it owns before the end is signalled
    } catch (...) {
        // A thread that throws must not take the process with it; its loop has already traced what it could.
    }
    owned->ended->Set();
    return 0;
}

} // namespace

bool Thread::Start(std::function<void()> body) noexcept
{
    try {
        const auto ended = std::make_shared<Event>(Event::Kind::ManualReset);
        auto argument = std::make_unique<Argument>(Argument{std::move(body), ended});
        unsigned id = 0;
        const uintptr_t handle = ::_beginthreadex(nullptr, 0, Enter, argument.get(), 0, &id);
        if (handle == 0) {
            return false;
        }
        argument.release();
        m_handle.Reset(reinterpret_cast<HANDLE>(handle));
        m_id = id;
        m_ended = ended;
        return true;
    } catch (...) {
        return false;
    }
}

bool Thread::AwaitEnd(DWORD milliseconds) const noexcept
{
    // A thread whose requests a driver keeps stays unsignalled after its end, for up to five minutes ("Canceling
    // IRPs"). Nothing that the owner waits for is left by then, so the event counts as well.
    const std::array<HANDLE, 2> handles{m_handle.Get(), m_ended->Get()};
    const DWORD count = m_ended->Exists() ? 2 : 1;
    return ::WaitForMultipleObjects(count, handles.data(), FALSE, milliseconds) < WAIT_OBJECT_0 + count;
}

bool Thread::JoinFor(DWORD milliseconds) noexcept
{
    if (!m_handle) {
        return true;
    }
    const bool ended = AwaitEnd(milliseconds);
    m_handle.Reset();
    m_ended.reset();
    m_id = 0;
    return ended;
}

void Thread::JoinCancelling(DWORD milliseconds) noexcept
{
    if (!m_handle) {
        return;
    }
    DWORD wait = milliseconds;
    while (!AwaitEnd(wait)) {
        // "CancelSynchronousIo function": it marks the call that the thread is in at this moment. Before the call
        // begins there is nothing to cancel, and the thread may make another one after it, so a single cancel
        // proves nothing.
        ::CancelSynchronousIo(m_handle.Get());
        wait = TimeBetweenCancelsMs;
    }
    Join();
}

} // namespace win32
