// The tracer's own thread. Windows runs message loops of its own on it: while the debug window's menu is open,
// while the window is moved or sized, while a scroll bar is held. The thread's wait returns only after such a
// modal loop, so the queue is served from within it. A producer sends the debug window a message, which is
// delivered whenever the thread asks for messages, whatever kind it asks for ("About Messages and Message
// Queues"). What is left in the queue waits for a timer, after the user's input.
#include "diag/CDebugThread.h"
#include "trace/Trace.h"

#include <array>
#include <cstdio>
#include <exception>

namespace {

constexpr std::uint32_t EntriesPerWakeUp = 3; // then the window's messages have their turn
constexpr std::uint32_t EntriesAtEnd = 1000;
constexpr DWORD GatherTimeMs = 8;
constexpr DWORD ModalSliceMs = 30; // then the modal loop has its turn

/// Longer than the main thread takes to end the router. Windows counts a program that answers later as hung.
constexpr DWORD SessionEndLimitMs = 5000;

} // namespace

bool CDebugThread::InitInstance()
{
    ApplySettings();
    return true;
}

void CDebugThread::ServeOnce(DWORD timeoutMs) noexcept
{
    enum : DWORD { StopRequested = WAIT_OBJECT_0, SettingsChanged, EntriesQueued, InputPending };
    try {
        DispatchMessages();
        const std::array<HANDLE, 3> handles{m_stop.Get(), m_settings.Get(), m_queue.DataEvent()};
        const DWORD result = ::MsgWaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                                         timeoutMs, QS_ALLINPUT);
        switch (result) {
        case SettingsChanged: ApplySettings(); break;
        case EntriesQueued: OnEntriesQueued(); break;
        case InputPending:
        case WAIT_TIMEOUT: break;
        default: m_running = false; break; // StopRequested, or the wait failed
        }
    } catch (const std::exception&) {
        // What memory could not be found for is lost; the tracer goes on.
    }
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
        } while (m_running && m_queue.Size() != 0 && ::GetTickCount() - begin < ModalSliceMs);
    } catch (const std::exception&) {
        // As in ServeOnce.
    }
    m_isServeRequested = false;
    m_window.ServeSoon(m_queue.Size() != 0);
}

/// The first lines wait a moment for more. What comes meanwhile wakes no thread; a wake-up for every line made the
/// round trips of traced packets half as long again.
void CDebugThread::OnEntriesQueued()
{
    const bool stopping = m_queue.Size() < EntriesPerWakeUp && m_stop.Wait(GatherTimeMs);
    if (!stopping) {
        ProcessEntries(EntriesPerWakeUp);
    }
}

void CDebugThread::ApplySettings()
{
    const std::uint32_t filter = TraceFilter;
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
        m_file.Open(ChooseLogFilePath(), AppendToFile);
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
            return Names().LogFilePath;
        }
        folder += L"Log";
        ::CreateDirectoryW(folder.c_str(), nullptr);
        folder += L'\\';
    }
    const win32::ExclusiveScope lock(m_namesLock);
    m_names.LogFolder = folder;
    m_names.LogFilePath = folder + m_names.LogFileName;
    return m_names.LogFilePath;
}

void CDebugThread::ProcessEntries(std::uint32_t maxCount)
{
    int lastLine = -1;
    CDebugEntry entry;
    for (std::uint32_t taken = 0; taken < maxCount && m_queue.Pop(entry); ++taken) {
        const std::uint32_t filter = TraceFilter;
        if (WantsWindow(filter) && entry.ToWindow && !entry.Text.empty()) {
            lastLine = m_window.AddLine(entry.Text, false);
        }
        if (WantsFile(filter) && m_file.TakesLines() && entry.ToFile && !entry.Text.empty()) {
            m_file.WriteLine(entry.Text, FileSizeLimit);
        }
        if (m_queue.DiscardOverflow(Accepts(EveryTrace)) && WantsWindow(TraceFilter)) {
            m_window.Clear();
        }
        ::Sleep(0);
    }
    const std::uint32_t filter = TraceFilter;
    if (WantsWindow(filter)) {
        m_window.ScrollTo(lastLine);
    }
    if (WantsFile(filter) && m_file.IsOpen()) {
        m_file.FlushWhenDue();
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
        if (WantsFile(TraceFilter) && m_file.IsOpen()) {
            m_file.Write("********* Debug Tracer Terminating *********\r\n");
            ProcessEntries(EntriesAtEnd);
            if (const std::size_t lost = m_queue.Size(); lost != 0) {
                // With a blank before the line end, as the log's readers know it.
                std::array<char, 80> text{};
                std::snprintf(text.data(), text.size(), "********* %d Entries Not Yet Processed ********* \r\n",
                              static_cast<int>(lost));
                m_file.Write(text.data());
            }
            m_file.Close();
        }
    } catch (const std::exception&) {
        // Out of memory: what is written up to here is the log.
    }
    m_logEnded.Set();
}

/// Windows may end the process as soon as the window procedure has returned ("WM_ENDSESSION message"), so the
/// main thread ends the router before that. This one writes the log meanwhile: after a blocking SendMessage the
/// main thread's wait for the log would time out.
void CDebugThread::OnSessionEnd() noexcept
{
    if (std::exchange(m_sessionEnds, true)) {
        return;
    }
    // When the dialog's window procedure has returned, or the dialog was destroyed before it got the message.
    const SENDASYNCPROC routerEnded = [](HWND, UINT, ULONG_PTR tracer, LRESULT) noexcept {
        reinterpret_cast<CDebugThread*>(tracer)->m_routerEnded = true;
    };
    m_routerEnded = ::SendMessageCallbackW(m_sessionWindow, WM_ENDSESSION, TRUE, 0, routerEnded,
                                           reinterpret_cast<ULONG_PTR>(this)) == FALSE;
    const ULONGLONG end = ::GetTickCount64() + SessionEndLimitMs;
    const auto remaining = [end]() noexcept -> DWORD {
        const ULONGLONG now = ::GetTickCount64();
        return now < end ? static_cast<DWORD>(end - now) : 0;
    };
    for (DWORD left = remaining(); m_running && !m_routerEnded && left != 0; left = remaining()) {
        ServeOnce(left);
    }
    m_running = false;
    EndLog();
    for (DWORD left = remaining(); !m_routerEnded && left != 0; left = remaining()) {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, left, QS_SENDMESSAGE);
        MSG ignored;
        ::PeekMessageW(&ignored, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE); // calls routerEnded
    }
}
