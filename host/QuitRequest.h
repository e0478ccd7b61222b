// A request to end the process.
#pragma once

#include "win32/Windows.h"

#include <atomic>

/// Any thread may post it; WM_QUIT ends the main thread's message loop. The loop of an open menu or of a window
/// that is moved may take the message for itself, so the request is kept and the main thread repeats the message.
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
