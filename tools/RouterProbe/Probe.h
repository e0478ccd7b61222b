// The probe as a whole: a worker for each port, and an eye on the router.
#pragma once

#include "PortWorker.h"
#include "ProbeOptions.h"
#include "RouterWatch.h"

#include "console/Console.h"
#include "win32/Event.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

/// Main thread only, but for what the workers' listeners call.
class Probe
{
public:
    explicit Probe(const ProbeOptions& options);
    ~Probe() { m_stop.Set(); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    /// Runs to the end; the first thing that went wrong, if any.
    std::optional<ProbeFault> Run();

private:
    enum class Slot : DWORD { AllEnded, Stop, Opened, RouterEnded, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    std::unique_ptr<PortJob> MakeJob(const ProbePort& port) const;
    void StartWorkers();
    void OnOpened(PortWorker::Opening opening);
    void OnEnded();
    void FindRouter();
    void Watch();
    void EndWorkers();
    void OnFirstOpening();
    /// False when that ends the run.
    bool OnRouterEnded();
    void SayWhenRouterIsBack();
    std::optional<std::chrono::microseconds> End() const;
    void PrintProgress();
    void PrintSummary(std::chrono::microseconds time) const;
    std::optional<ProbeFault> FirstFault() const;

    const ProbeOptions& m_options;
    const console::StopSignal m_stop;
    const console::ReadySignal m_ready;                          // set when all pipes are open
    const win32::Event m_never{win32::Event::Kind::ManualReset}; // stands in for a process that is not known
    const win32::Event m_allEnded{win32::Event::Kind::ManualReset};
    std::atomic<std::size_t> m_notOpened;                       // workers whose pipe was not open yet
    std::atomic<std::size_t> m_running;                         // workers that have not ended
    const win32::Event m_opened{win32::Event::Kind::AutoReset}; // a pipe was opened
    RouterWatch m_router;
    std::optional<ProbeFault> m_fault;   // of the router
    std::chrono::microseconds m_start{}; // of the run, from the first opening on of the work
    bool m_hasBegun = false;             // a pipe was open
    bool m_routerAwaited = false;        // the router has ended and is being started again
    std::chrono::microseconds m_lastProgress{};
    std::uint64_t m_lastDone = 0;
    std::uint64_t m_lastBytes = 0;
    std::vector<std::unique_ptr<PortWorker>> m_workers; // their threads end before the rest is destroyed
};
