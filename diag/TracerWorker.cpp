// The tracer's own thread.
#include "diag/CDebugThread.h"
#include "diag/TimeStamp.h"
#include "trace/Trace.h"

#include <array>
#include <cstdio>
#include <exception>
#include <string>

namespace {

constexpr std::uint32_t EntriesPerWakeUp = 3; // then the window's messages have their turn
constexpr std::uint32_t EntriesAtEnd = 1000;
constexpr DWORD GatherTime = 8; // ms

} // namespace

void CDebugThread::Run()
{
    InitInstance();
    while (m_running) {
        ServeOnce(INFINITE);
    }
    ExitInstance();
}

bool CDebugThread::InitInstance()
{
    ApplySettings();
    return true;
}

void CDebugThread::ServeOnce(DWORD timeoutMs) noexcept
{
    try {
        Serve(timeoutMs);
    } catch (const std::exception&) {
        // What memory could not be found for is lost; the tracer goes on.
    }
}

void CDebugThread::Serve(DWORD timeoutMs)
{
    DispatchMessages();
    switch (Wait(timeoutMs)) {
    case Slot::SettingsChanged: ApplySettings(); break;
    case Slot::EntriesQueued: OnEntriesQueued(); break;
    case Slot::InputPending:
    case Slot::TimedOut: break;
    case Slot::Stop:
    case Slot::Failed: m_running = false; break;
    }
}

/// The first lines wait a moment for more. What comes meanwhile wakes no thread; a wake-up for every line made the
/// round trips of traced packets half as long again.
void CDebugThread::OnEntriesQueued()
{
    const bool stopping =
        m_queue.Size() < EntriesPerWakeUp && ::WaitForSingleObject(m_stop.Get(), GatherTime) == WAIT_OBJECT_0;
    if (!stopping) {
        ProcessEntries(EntriesPerWakeUp);
    }
}

CDebugThread::Slot CDebugThread::Wait(DWORD timeoutMs) const noexcept
{
    const std::array<HANDLE, 3> handles{m_stop.Get(), m_settings.Get(), m_queue.DataEvent()};
    const DWORD result = ::MsgWaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                                     timeoutMs, QS_ALLINPUT);
    const bool known = result <= static_cast<DWORD>(Slot::InputPending) || result == WAIT_TIMEOUT;
    return known ? static_cast<Slot>(result) : Slot::Failed;
}

void CDebugThread::ApplySettings()
{
    const std::uint32_t filter = m_options.TraceFilter;
    if (WantsWindow(filter)) {
        m_window.Create();
        if (!m_window.Exists()) {
            AddTrace(EveryTrace, "Debug window not created, error " + std::to_string(::GetLastError()));
        }
    } else {
        m_window.Destroy();
    }
    m_shownWindow = m_window.Window();
    if (WantsFile(filter) && !m_file.IsOpen()) {
        m_file.Open(ChooseLogFilePath(), m_options.AppendToFile);
    } else if (!WantsFile(filter) && m_file.IsOpen()) {
        m_file.Close();
    }
}

std::wstring CDebugThread::ChooseLogFilePath()
{
    const std::optional<std::wstring> program = m_surroundings.ProgramPath();
    std::wstring folder = L"c:\\";
    if (program) {
        folder = win32::FolderOf(*program);
        if (folder.empty()) {
            return LogFilePath();
        }
        folder += L"Log";
        ::CreateDirectoryW(folder.c_str(), nullptr);
        folder += L'\\';
    }
    const win32::ExclusiveScope lock(m_namesLock);
    m_logFolder = folder;
    m_logFilePath = folder + m_logFileName;
    return m_logFilePath;
}

void CDebugThread::ProcessEntries(std::uint32_t maxCount)
{
    int lastLine = -1;
    CDebugEntry entry;
    for (std::uint32_t taken = 0; taken < maxCount && m_queue.Pop(entry); ++taken) {
        if (!entry.Text.empty()) {
            Deliver(entry, lastLine);
        }
        if (m_queue.DiscardOverflow(Accepts(EveryTrace)) && WantsWindow(m_options.TraceFilter)) {
            m_window.Clear();
        }
        ::Sleep(0);
    }
    const std::uint32_t filter = m_options.TraceFilter;
    if (WantsWindow(filter)) {
        m_window.ScrollTo(lastLine);
    }
    if (WantsFile(filter) && m_file.IsOpen()) {
        m_file.FlushWhenDue();
    }
}

void CDebugThread::Deliver(const CDebugEntry& entry, int& lastLine)
{
    const std::uint32_t filter = m_options.TraceFilter;
    if (WantsWindow(filter) && entry.ToWindow) {
        lastLine = m_window.AddLine(entry.Text, false);
    }
    if (WantsFile(filter) && m_file.TakesLines() && entry.ToFile) {
        m_file.WriteLine(entry.Text, m_options.FileSizeLimit);
    }
}

unsigned CDebugThread::ExitInstance()
{
    m_window.Destroy();
    EndLog();
    return 0;
}

/// Writes what is left, at the latest by ExitInstance; harmless when that was done before.
void CDebugThread::EndLog() noexcept
{
    try {
        WriteLastLines();
    } catch (const std::exception&) {
        // Out of memory: what is written up to here is the log.
    }
    m_logEnded.Set();
}

void CDebugThread::WriteLastLines()
{
    if (!WantsFile(m_options.TraceFilter) || !m_file.IsOpen()) {
        return;
    }
    m_file.Write("********* Debug Tracer Terminating *********\r\n");
    ProcessEntries(EntriesAtEnd);
    const std::size_t lost = m_queue.Size();
    if (lost != 0) {
        // With a blank before the line end, as the log's readers know it.
        std::array<char, 80> text{};
        std::snprintf(text.data(), text.size(), "********* %d Entries Not Yet Processed ********* \r\n",
                      static_cast<int>(lost));
        m_file.Write(text.data());
    }
    m_file.Close();
}
