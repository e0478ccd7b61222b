#include "diag/CDebugThread.h"

CDebugThread::Owner CDebugThread::Create(const TracerSurroundings& surroundings)
{
    return Owner(new CDebugThread(surroundings));
}

CDebugThread::CDebugThread(const TracerSurroundings& surroundings)
    : m_surroundings(surroundings), m_file(surroundings.Disk)
{
    m_window.OnSessionEnd = [this] { OnSessionEnd(); };
    m_window.ServeQueue = [this] { ServeModalLoop(); };
    m_window.OnLoopBegins = [this] { EnterLoop(); };
    m_window.OnLoopEnds = [this] { LeaveLoop(); };
}

void CDebugThread::SetOptions(std::uint32_t filter, const wchar_t* fileName, std::uint32_t limitMB, bool append)
{
    TraceFilter = filter;
    if (fileName != nullptr) {
        const win32::ExclusiveScope lock(m_namesLock);
        m_names.LogFileName = fileName;
    }
    FileSizeLimit = limitMB << 20;
    AppendToFile = append;
    if (m_threadHeld) {
        m_settings.Set();
    }
}

bool CDebugThread::Start()
{
    m_running = true;
    m_threadHeld = m_thread.Start([this] {
        InitInstance();
        while (m_running) {
            ServeOnce(INFINITE);
        }
        ExitInstance();
    });
    return m_threadHeld;
}

bool CDebugThread::Stop()
{
    constexpr DWORD limitMs = 5000;
    if (m_thread.IsHeld()) {
        BeginStop();
        m_abandoned = !m_thread.JoinFor(limitMs);
        m_threadHeld = false;
    }
    return !m_abandoned;
}

bool CDebugThread::StopForSessionEnd()
{
    constexpr DWORD limitMs = 2000;
    if (!m_thread.IsHeld()) {
        return !m_abandoned;
    }
    BeginStop();
    const bool complete = m_logEnded.Wait(limitMs);
    m_threadHeld = false;
    return complete;
}

void CDebugThread::BeginStop()
{
    m_stop.Set();
    // A modal loop (see TracerWorker.cpp) takes messages without a window for itself, so it has to end first.
    if (const HWND window = m_shownWindow; window != nullptr) {
        ::PostMessageW(window, WM_CANCELMODE, 0, 0);
    }
    ::PostThreadMessageW(m_thread.Id(), WM_QUIT, 0, 0);
    m_running = false;
}

void CDebugThread::Add(std::uint32_t mask, std::string text, TraceQueue::Stamp stamp)
{
    if (!Accepts(mask)) {
        return;
    }
    m_queue.Push(mask, std::move(text), stamp);
    // After the entry is in the queue; see TracerWorker.cpp. Does not wait.
    if (m_mayBeInLoop && !m_isServeRequested.exchange(true)) {
        ::SendNotifyMessageW(m_shownWindow, CDebugWindow::ServeMessage, 0, 0);
    }
}

CDebugThread::LogNames CDebugThread::Names() const
{
    const win32::SharedScope lock(m_namesLock);
    return m_names;
}
