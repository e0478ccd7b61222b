// The wish that the router end.
#pragma once

#include "win32/Windows.h"

#include <atomic>

/// Any thread may post it; the main thread's message loop ends by the WM_QUIT. A menu that is open, or a window
/// that is being moved, has a loop of its own that may take the message and not pass it on. So the request is
/// kept, and the main thread repeats the message while it is still there to do so.
class QuitRequest
{
public:
    /// `mainThread`: whose message loop is to end.
    explicit QuitRequest(DWORD mainThread) noexcept : m_mainThread(mainThread) {}

    void Post() noexcept
    {
        m_isWanted = true;
        ::PostThreadMessageW(m_mainThread, WM_QUIT, 0, 0);
    }
    bool IsWanted() const noexcept { return m_isWanted; }

private:
    const DWORD m_mainThread;
    std::atomic<bool> m_isWanted{false}; // never taken back
};
