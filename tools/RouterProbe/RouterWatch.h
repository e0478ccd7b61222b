// The router's process, as the probe sees it from outside.
#pragma once

#include "ProbeOptions.h"

#include "client/RouterAutomation.h"
#include "win32/CriticalSection.h"

#include <optional>
#include <string>

/// Any thread may look for the router; everything else is the main thread's.
class RouterWatch
{
public:
    /// Looks for the running router, unless it is known. To be called while a port of the probe is registered: a
    /// router that has just been released may still be ending.
    void Find();

    /// Signalled when the router has ended; null when it is not known which process it is.
    HANDLE ProcessHandle();
    /// "router ended with code N".
    std::string EndText();
    /// Find looks for the next one.
    void Forget();

    /// Waits for the router's end, says how it ended and returns what is wrong with that.
    std::optional<ProbeFault> WaitForEnd(std::chrono::milliseconds timeout);

private:
    win32::CriticalSection m_lock;
    RouterProcess m_process GUARDED_BY(m_lock);
};
