// The probe's hold on the router: the automation object, the ports it registered and the router's process.
#pragma once

#include "ProbeOptions.h"

#include "client/RouterAutomation.h"
#include "console/Console.h"

#include <optional>
#include <string>

/// Main thread only. With --attach it holds nothing, and every step works.
class ProbeSession
{
public:
    ProbeSession(const ProbeOptions& options, const console::StopSignal& stop);
    ~ProbeSession();
    ProbeSession(const ProbeSession&) = delete;
    ProbeSession& operator=(const ProbeSession&) = delete;

    /// Starts the router, if need be, and registers the ports. A router that is just ending can't be started; it
    /// is tried again for the time of --open-timeout.
    std::optional<ProbeFault> Begin(std::optional<std::chrono::microseconds> noLaterThan = std::nullopt);

    /// Signalled when the router has ended; null when it is not known which process it is.
    HANDLE ProcessHandle() const noexcept { return m_process.Get(); }
    /// "router ended with code N".
    std::string EndText() const;

    /// Registers again those ports that another client had and has released since; keeps all others as they are.
    std::optional<ProbeFault> RegisterPorts();

    /// Releases the router's object, which removes the ports that it registered. Their pipes must be closed.
    void End();

    /// With --wait-exit: waits for the router's end and says how it ended.
    std::optional<ProbeFault> WaitForRouterEnd() const;

private:
    std::optional<ProbeFault> TryToBegin();

    const ProbeOptions& m_options;
    const console::StopSignal& m_stop;
    const bool m_comReady;
    RouterAutomation m_router;
    RouterProcess m_process;
};
