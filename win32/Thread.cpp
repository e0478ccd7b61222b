#include "win32/Thread.h"

#include <process.h>
#include <memory>

namespace win32 {

namespace {

constexpr DWORD TimeBetweenCancelsMs = 10;

unsigned __stdcall Enter(void* argument) noexcept
{
    const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
    try {
        (*body)();
    } catch (...) {
        // A thread that throws must not take the process with it; its loop has already traced what it could.
        return 1;
    }
    return 0;
}

} // namespace

bool Thread::Start(std::function<void()> body) noexcept
{
    try {
        auto argument = std::make_unique<std::function<void()>>(std::move(body));
        unsigned id = 0;
        const uintptr_t handle = ::_beginthreadex(nullptr, 0, Enter, argument.get(), 0, &id);
        if (handle == 0) {
            return false;
        }
        argument.release();
        m_handle.Reset(reinterpret_cast<HANDLE>(handle));
        m_id = id;
        return true;
    } catch (...) {
        return false;
    }
}

void Thread::Join() noexcept
{
    JoinFor(INFINITE);
}

bool Thread::JoinFor(DWORD milliseconds) noexcept
{
    if (!m_handle) {
        return true;
    }
    const bool ended = ::WaitForSingleObject(m_handle.Get(), milliseconds) == WAIT_OBJECT_0;
    m_handle.Reset();
    m_id = 0;
    return ended;
}

void Thread::JoinCancelling(DWORD milliseconds) noexcept
{
    if (!m_handle) {
        return;
    }
    DWORD wait = milliseconds;
    while (::WaitForSingleObject(m_handle.Get(), wait) == WAIT_TIMEOUT) {
        // "CancelSynchronousIo function": it marks the call that the thread is in at this moment. Before the call begins
        // there is nothing to cancel, and the thread may make another one after it, so a single cancel proves nothing.
        ::CancelSynchronousIo(m_handle.Get());
        wait = TimeBetweenCancelsMs;
    }
    Join();
}

} // namespace win32
