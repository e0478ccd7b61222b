// A thread that is joined by its owner.
#pragma once

#include "win32/Event.h"
#include "win32/Handle.h"

#include <functional>
#include <memory>

namespace win32 {

/// Declared last in its class, so that it ends before the fields it uses go. All members are called by the
/// owner's thread only.
class Thread
{
public:
    Thread() noexcept = default;
    ~Thread() { Join(); }

    /// Runs `body` on a new thread, at once and with the default stack size. Whatever `body` throws ends with
    /// the thread. Returns false when Windows could not create it. Only while none is held.
    bool Start(std::function<void()> body) noexcept;

    /// Waits without limit until `body` has ended and closes the thread. Harmless when none is held.
    void Join() noexcept { JoinFor(INFINITE); }

    /// As Join, but gives up after `milliseconds`: the handle is closed in either case and a thread that still
    /// runs is left to itself. Returns whether it ended.
    bool JoinFor(DWORD milliseconds) noexcept;

    /// As Join, but after `milliseconds` cancels whatever synchronous I/O call blocks the thread, again and again
    /// until it has ended. For a thread that does nothing else with files or pipes that must not be cancelled.
    void JoinCancelling(DWORD milliseconds) noexcept;

    /// True from Start to Join, also when the thread has ended by itself in between.
    bool IsHeld() const noexcept { return static_cast<bool>(m_handle); }
    HANDLE Get() const noexcept { return m_handle.Get(); }
    DWORD Id() const noexcept { return m_id; }
    void SetPriority(int priority) const noexcept { ::SetThreadPriority(m_handle.Get(), priority); }

private:
    bool AwaitEnd(DWORD milliseconds) const noexcept;

    KernelHandle m_handle;
    std::shared_ptr<Event> m_ended; // shared with the thread: signalled when `body` and all it owned are gone
    DWORD m_id = 0;
};

} // namespace win32
