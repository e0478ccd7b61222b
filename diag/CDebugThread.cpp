#include "diag/CDebugThread.h"

#include <utility>

CDebugThread::Owner CDebugThread::Create()
{
    return Create(Surroundings());
}

CDebugThread::Owner CDebugThread::Create(const Surroundings& surroundings)
{
    return Owner(new CDebugThread(surroundings));
}

void CDebugThread::Deleter::operator()(CDebugThread* tracer) const noexcept
{
    if (tracer->Stop()) {
        delete tracer;
    }
}

CDebugThread::CDebugThread(const Surroundings& surroundings)
    : m_surroundings(surroundings), m_file(surroundings.Disk)
{
    m_window.OnSessionEnd = [this] { OnSessionEnd(); };
    m_window.ServeQueue = [this] { ServeModalLoop(); };
    m_window.OnLoopBegins = [this] { EnterLoop(); };
    m_window.OnLoopEnds = [this] { LeaveLoop(); };
}

void CDebugThread::SetOptions(std::uint32_t filter, const wchar_t* fileName, std::uint32_t limitMB, bool append)
{
    m_options.TraceFilter = filter;
    if (fileName != nullptr) {
        const win32::ExclusiveScope lock(m_namesLock);
        m_logFileName = fileName;
    }
    m_options.FileSizeLimit = limitMB << 20;
    m_options.AppendToFile = append;
    if (m_threadHeld) {
        m_settings.Set();
    }
}

bool CDebugThread::Start()
{
    m_running = true;
    const bool started = m_thread.Start([this] { Run(); });
    m_threadHeld = started;
    return started;
}

bool CDebugThread::Stop()
{
    if (!m_thread.IsHeld()) {
        return !m_abandoned;
    }
    BeginStop();
    m_abandoned = !m_thread.JoinFor(StopPatience);
    m_threadHeld = false;
    return !m_abandoned;
}

bool CDebugThread::StopForSessionEnd()
{
    if (!m_thread.IsHeld()) {
        return !m_abandoned;
    }
    BeginStop();
    const bool complete = m_logEnded.Wait(SessionEndPatience);
    m_threadHeld = false;
    return complete;
}

void CDebugThread::BeginStop()
{
    m_stop.Set();
    // A loop of Windows (see ModalLoops.cpp) takes messages without a window for itself, so it has to end first.
    if (const HWND window = m_shownWindow; window != nullptr) {
        ::PostMessageW(window, WM_CANCELMODE, 0, 0);
    }
    ::PostThreadMessageW(m_thread.Id(), WM_QUIT, 0, 0);
    m_running = false;
}

bool CDebugThread::Accepts(std::uint32_t mask) const noexcept
{
    return m_threadHeld && (mask & m_options.TraceFilter) != 0;
}

void CDebugThread::AddTrace(std::uint32_t mask, std::string text)
{
    if (Accepts(mask)) {
        m_queue.Push(mask, std::move(text), TraceQueue::Stamp::Now);
        WakeModalLoop();
    }
}

void CDebugThread::AddRawTrace(std::uint32_t mask, std::string text)
{
    if (Accepts(mask)) {
        m_queue.Push(mask, std::move(text), TraceQueue::Stamp::None);
        WakeModalLoop();
    }
}

std::wstring CDebugThread::LogFileName() const
{
    const win32::SharedScope lock(m_namesLock);
    return m_logFileName;
}

std::wstring CDebugThread::LogFilePath() const
{
    const win32::SharedScope lock(m_namesLock);
    return m_logFilePath;
}

std::wstring CDebugThread::LogFolder() const
{
    const win32::SharedScope lock(m_namesLock);
    return m_logFolder;
}
