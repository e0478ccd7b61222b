// The tracer: takes finished lines from any thread, writes them to the log file and the debug window on its own.
#pragma once

#include "diag/CDebugWindow.h"
#include "diag/LogFile.h"
#include "diag/TraceQueue.h"
#include "win32/ModulePath.h"
#include "win32/Thread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// What may be exchanged for tests.
struct TracerSurroundings
{
    std::optional<std::wstring> (*ProgramPath)() = &win32::ModulePath; // the log folder lies beside it
    LogFile::Disk Disk;
};

/// Created, configured, started and stopped by one thread (the main one); traced to by any. A producer never
/// waits for disk or window: it takes a short lock and signals. Only its own Deleter destroys one.
class CDebugThread // NOLINT(cppcoreguidelines-virtual-class-destructor)
{
public:
    /// Stops the tracer before it deletes it. A tracer whose thread did not end in time is left in memory on
    /// purpose, since its thread may still come back to it.
    struct Deleter
    {
        void operator()(CDebugThread* tracer) const noexcept
        {
            if (tracer->Stop()) {
                delete tracer;
            }
        }
    };
    using Owner = std::unique_ptr<CDebugThread, Deleter>;

    struct LogNames
    {
        std::wstring LogFileName = L"Debug.log"; // bare
        std::wstring LogFilePath;                // of the last file that was to be opened; empty before
        std::wstring LogFolder;                  // the same; with its trailing backslash
    };

    static Owner Create(const TracerSurroundings& surroundings = {});

    /// `filter`: the OR of all masks that lines may come with. `fileName`: bare; null keeps the one there is.
    /// `limitMB`: size that ends a log file; unchecked, 4096 and more wrap around. Also while it runs.
    void SetOptions(std::uint32_t filter, const wchar_t* fileName, std::uint32_t limitMB, bool append);

    /// Whether the debug window may be closed by its system menu. Before Start only.
    void SetShowWindow(bool closable) { m_window.Closable = closable; }

    /// The window that is sent WM_ENDSESSION when the debug window receives it: the main thread's, whose procedure
    /// ends the router and calls StopForSessionEnd. Before Start only.
    void SetSessionWindow(HWND window) noexcept { m_sessionWindow = window; }

    /// False when the thread could not be created.
    bool Start();

    /// Ends the thread, which first writes at most 1000 of the waiting lines. False when it did not end in 5
    /// seconds; it is not waited for again.
    bool Stop();

    /// Stop for the end of the Windows session: waits at most 2 seconds for a complete log, false when it is not.
    /// Stop or the Deleter joins the thread later: it may be in the debug window's procedure, which returns after
    /// that of the session window.
    bool StopForSessionEnd();

    /// Queues a line with a time stamp; drops it unless the thread is there and mask and filter meet. Any thread.
    void AddTrace(std::uint32_t mask, std::string text) { Add(mask, std::move(text), TraceQueue::Stamp::Now); }
    /// The same without the time stamp.
    void AddRawTrace(std::uint32_t mask, std::string text) { Add(mask, std::move(text), TraceQueue::Stamp::None); }

    /// Any thread.
    LogNames Names() const;

protected:
    explicit CDebugThread(const TracerSurroundings& surroundings);
    virtual ~CDebugThread() = default;

    /// The first and the last thing that the thread does.
    virtual bool InitInstance();
    virtual unsigned ExitInstance();

private:
    bool Accepts(std::uint32_t mask) const noexcept { return m_threadHeld && (mask & TraceFilter) != 0; }
    void Add(std::uint32_t mask, std::string text, TraceQueue::Stamp stamp);
    void BeginStop();

    void ServeOnce(DWORD timeoutMs) noexcept;
    void DispatchMessages();
    void EnterLoop() noexcept;
    void LeaveLoop() noexcept;
    void ServeModalLoop() noexcept;
    void OnEntriesQueued();
    void ApplySettings();
    std::wstring ChooseLogFilePath();
    void ProcessEntries(std::uint32_t maxCount);
    void EndLog() noexcept;
    void OnSessionEnd() noexcept;

    const TracerSurroundings m_surroundings;
    HWND m_sessionWindow = nullptr; // fixed while the thread runs

    // Written by SetOptions, read by the producers (the filter) and the worker.
    std::atomic<std::uint32_t> TraceFilter{0xFFFFFFFF};
    std::atomic<std::uint32_t> FileSizeLimit{0x500000}; // bytes
    std::atomic<bool> AppendToFile{true};

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_threadHeld{false};
    std::atomic<HWND> m_shownWindow{nullptr};    // the debug window; a stale handle is harmless
    std::atomic<bool> m_mayBeInLoop{false};      // the worker may be in a modal loop of the debug window
    std::atomic<bool> m_isServeRequested{false}; // such a loop has a message pending that serves the queue

    mutable win32::SharedLock m_namesLock;
    LogNames m_names GUARDED_BY(m_namesLock);

    TraceQueue m_queue;
    const win32::Event m_stop{win32::Event::Kind::ManualReset};
    const win32::Event m_settings{win32::Event::Kind::AutoReset};
    const win32::Event m_logEnded{win32::Event::Kind::ManualReset}; // nothing more is written to the file

    // The worker's own.
    CDebugWindow m_window;
    LogFile m_file;
    bool m_sessionEnds = false;
    bool m_routerEnded = false; // the session window's procedure has returned

    // The owner's.
    bool m_abandoned = false;
    win32::Thread m_thread; // last, so that it is destroyed first
};
