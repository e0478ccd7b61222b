// Windows runs message loops of its own on the tracer's thread: while the debug window's menu is open, while the
// window is moved or sized, while a scroll bar is held. The thread's wait does not come back before such a loop
// has ended, so the queue is served from within it.
//
// A loop dispatches messages that have a window. A producer therefore sends one to the debug window: sent messages
// are delivered whenever the thread asks for messages, whatever kind it asks for ("About Messages and Message
// Queues"). What is left in the queue waits for a timer, after the user's input.
#include "diag/CDebugThread.h"

#include <exception>

namespace {

constexpr DWORD SliceMs = 30; // then the loop has its turn

} // namespace

/// Any thread, after its entry is in the queue.
void CDebugThread::WakeModalLoop() noexcept
{
    if (m_mayBeInLoop && !m_isServeRequested.exchange(true)) {
        ::SendNotifyMessageW(m_shownWindow, CDebugWindow::ServeMessage, 0, 0); // does not wait
    }
}

/// Also called by the window procedure, for a loop that a sent message has begun.
void CDebugThread::EnterLoop() noexcept
{
    m_isServeRequested = false; // a producer that was late may have set it after LeaveLoop
    m_mayBeInLoop = m_window.Exists();
    m_window.ServeSoon(m_queue.Size() != 0); // no producer sends a message for these
}

void CDebugThread::LeaveLoop() noexcept
{
    m_mayBeInLoop = false;
    m_window.ServeSoon(false);
}

void CDebugThread::DispatchMessages()
{
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            m_running = false;
            return;
        }
        EnterLoop(); // almost every message may begin one
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
        LeaveLoop();
    }
}

/// Settings wait for the end of the loop: applying them may destroy the window that the loop works for.
void CDebugThread::ServeModalLoop() noexcept
{
    if (!m_mayBeInLoop) {
        return; // came late: the thread's own loop serves the queue, and takes settings between
    }
    const DWORD begin = ::GetTickCount();
    try {
        do {
            OnEntriesQueued();
        } while (m_running && m_queue.Size() != 0 && ::GetTickCount() - begin < SliceMs);
    } catch (const std::exception&) {
        // As in ServeOnce.
    }
    m_isServeRequested = false;
    m_window.ServeSoon(m_queue.Size() != 0);
}
