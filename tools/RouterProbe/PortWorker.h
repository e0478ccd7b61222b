// One port's thread: keeps the pipe open and runs the job on it.
#pragma once

#include "PortJob.h"

#include "win32/Thread.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

class PortWorker
{
public:
    /// What the worker tells, from its thread.
    struct Listener
    {
        std::function<void()> opened; // the first time
        std::function<void()>
            unserved; // with --keep-going: the pipe broke or could not be opened, and is tried again
        std::function<void()> ended;
    };

    /// All references must outlive the worker.
    PortWorker(const ProbeOptions& options, const ProbePort& port, const console::StopSignal& stop,
               std::unique_ptr<PortJob> job, Listener listener);

    bool Start();
    /// Waits for the thread's end; the pipe is closed by then.
    void Join() { m_thread.Join(); }

    const PortJob& Job() const noexcept { return *m_job; }
    /// After Join: what went wrong, if anything.
    std::optional<ProbeFault> Fault() const;

private:
    void Work();
    bool Open();
    bool GoesOnAfterBreak();

    const ProbeOptions& m_options;
    const ProbePort& m_port;
    const console::StopSignal& m_stop;
    const std::unique_ptr<PortJob> m_job;
    const Listener m_listener;
    // Of the worker's thread until Join:
    ClientPipe m_pipe;
    std::optional<ProbeFault> m_fault;
    std::chrono::microseconds
        m_openUntil{}; // a pipe that breaks before it served anything is opened again so long
    bool m_wasOpen = false;
    bool m_saidGone = false;
    std::string m_lastRefusal; // as printed; said once until the pipe opens or the reason changes
    win32::Thread m_thread;
};
