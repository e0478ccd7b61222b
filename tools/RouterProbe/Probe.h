// The probe as a whole: the router's session and a worker for each port.
#pragma once

#include "PortWorker.h"
#include "ProbeOptions.h"
#include "ProbeSession.h"

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
    enum class Slot : DWORD { AllEnded, Stop, RouterEnded, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    std::unique_ptr<PortJob> MakeJob(const ProbePort& port) const;
    void StartWorkers();
    void OnOpened();
    void RegisterUnservedPorts();
    void OnEnded();
    void Watch();
    void OnRouterEnded();
    void BringRouterBack();
    void PrintProgress();
    void PrintSummary() const;
    std::optional<ProbeFault> FirstFault() const;

    const ProbeOptions& m_options;
    const console::StopSignal m_stop;
    const console::ReadySignal m_ready;                          // set when all pipes are open
    const win32::Event m_never{win32::Event::Kind::ManualReset}; // stands in for a process that is not known
    const win32::Event m_allEnded{win32::Event::Kind::ManualReset};
    std::atomic<std::size_t> m_notOpened; // workers whose pipe was not open yet
    std::atomic<std::size_t> m_running;   // workers that have not ended
    std::atomic<bool> m_unserved{false};  // a port's pipe broke or could not be opened since the last registration
    ProbeSession m_session;
    std::optional<ProbeFault> m_fault; // of the router
    std::chrono::microseconds m_start{};
    std::chrono::microseconds m_lastProgress{};
    std::uint64_t m_lastDone = 0;
    std::uint64_t m_lastBytes = 0;
    std::vector<std::unique_ptr<PortWorker>> m_workers; // their threads end before the rest goes
};
