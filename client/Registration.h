// A port's registration with the router.
#pragma once

#include "client/Errors.h"
#include "client/RouterAutomation.h"

#include <cstdint>
#include <string>

namespace clientlib {

struct PortRegistration
{
    std::int32_t deviceType = 0;
    std::uint32_t port = 0;
    std::int32_t readSize = 0;
    std::int32_t writeSize = 0;
    std::wstring pipeName;
    RouterAutomation::Binding binding = RouterAutomation::Binding::Early;
    bool restartsRouter = true; // starts a router again that ended after the port was registered
};

/// What a failed activation means. `routerRuns`: a process of the router's name runs.
Result ResultOfActivation(HRESULT result, bool routerRuns) noexcept;
/// Whether an activation met a router that was ending: the next one starts a new router.
bool MetEndingRouter(HRESULT result) noexcept;

/// Of the COM thread. Has an object of its own for its port and never unregisters: the release of the object
/// removes the ports that it registered and no other client's.
class Registration
{
public:
    explicit Registration(PortRegistration port) : m_port(std::move(port)) {}

    struct Outcome
    {
        Result result;
        bool routerLost = false; // the router of the last Renew has ended
        bool metEnding = false;  // its successor was to be started while a router was ending
    };

    /// Creates the object unless it lives, and registers the port unless it is registered: another client's
    /// release may have removed it.
    Outcome Renew();
    void Release() { m_router.Release(); }

private:
    bool Register();

    const PortRegistration m_port;
    RouterAutomation m_router;
    Result m_ended; // not OK: the router has ended and is not started again
};

} // namespace clientlib
