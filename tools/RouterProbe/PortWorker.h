// One port's thread: waits for the pipe and runs the job on it.
#pragma once

#include "PortJob.h"

#include "win32/Thread.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

/// The library keeps the port registered and its pipe open; the worker says how that goes. Start, Cancel and Join
/// are the main thread's.
class PortWorker
{
public:
    enum class Opening { First, Again };

    /// What the worker reports, from its thread.
    struct Listener
    {
        std::function<void(Opening)> opened;
        std::function<void()> ended; // the port is still registered
    };

    /// All references must outlive the worker.
    PortWorker(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop,
               std::unique_ptr<PortJob> job, Listener listener);

    /// False when there is no port or no thread, and Fault says why.
    bool Start();
    /// Ends the call that is pending, once the stop signal is set. A call that begins at this moment is missed: to
    /// be repeated until the worker has ended.
    void Cancel();
    /// Waits for the thread's end; the pipe is closed and the port released by then.
    void Join() { m_thread.Join(); }

    const PortJob& Job() const noexcept { return *m_job; }
    /// After Join: what went wrong, if anything.
    std::optional<ProbeFault> Fault() const;

private:
    enum class Next { Wait, GoOn, End };

    bool OpenPort();
    void Work();
    bool AwaitPipe();
    Next OnEvent(const morvane_event& event);
    void OnOpened();
    Next OnRefused();
    bool GoesOnAfterBreak();

    const ProbeOptions& m_options;
    const ProbePort& m_port;
    const console::StopSignal& m_stop;
    const std::unique_ptr<PortJob> m_job;
    const Listener m_listener;
    morvane::Port m_pipe; // set before the thread starts, and destroyed after its end
    // Of the worker's thread until Join:
    std::optional<ProbeFault> m_fault;
    std::optional<morvane_event> m_refusal; // why there is no pipe at present, once that is known
    std::chrono::microseconds m_openUntil{};
    bool m_wasOpen = false;
    bool m_saidGone = false;
    std::string m_lastRefusal; // as printed; said once until the pipe opens or the reason changes
    win32::Thread m_thread;
};
