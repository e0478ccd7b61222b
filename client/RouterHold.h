// A port's hold on the router.
#pragma once

#include "client/ComThread.h"
#include "client/Registration.h"

#include <memory>
#include <optional>

namespace clientlib {

/// Of the port's worker, and after its end of the closing thread. The registration lives on the COM thread; a job
/// of a port that closes goes on without it.
class RouterHold
{
public:
    RouterHold(ComThread& com, const PortRegistration& port);

    /// Registers the port, unless it is registered. None when `closed` was signalled first.
    std::optional<Registration::Outcome> Renew(HANDLE closed);
    /// Waits for that at most 10 s: a router that hangs must not hold its clients.
    void Release() noexcept;

private:
    ComThread& m_com;
    const std::shared_ptr<Registration> m_registration; // shared with jobs of the COM thread, which alone uses it
};

} // namespace clientlib
