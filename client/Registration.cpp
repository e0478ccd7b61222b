#include "client/Registration.h"

#include <winerror.h>

namespace clientlib {

namespace {

constexpr const wchar_t* RouterName = L"MorvanePortRouter.exe";

Result With(int code, HRESULT result) noexcept
{
    return {code, static_cast<DWORD>(result)};
}

} // namespace

bool MetEndingRouter(HRESULT result) noexcept
{
    return result == CO_E_SERVER_STOPPING || result == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE) ||
           result == HRESULT_FROM_WIN32(RPC_S_CALL_FAILED) || result == RPC_E_DISCONNECTED ||
           result == RPC_E_SERVER_DIED || result == RPC_E_SERVER_DIED_DNE || result == CO_E_OBJNOTCONNECTED;
}

Result ResultOfActivation(HRESULT result, bool routerRuns) noexcept
{
    if (SUCCEEDED(result)) {
        return {};
    }
    if (MetEndingRouter(result)) {
        return With(MORVANE_E_ROUTER_GONE, result);
    }
    switch (result) {
    case REGDB_E_CLASSNOTREG:
    case CO_E_CLASSSTRING: return With(MORVANE_E_NOT_REGISTERED, result);
    // A second router ends at once when it finds the first one, which this client could not find.
    case CO_E_SERVER_EXEC_FAILURE: return With(routerRuns ? MORVANE_E_ELEVATION : MORVANE_E_NO_START, result);
    case E_ACCESSDENIED: return With(MORVANE_E_ELEVATION, result);
    default: return With(MORVANE_E_NO_START, result);
    }
}

bool Registration::Register()
{
    return m_router.Register(m_port.deviceType, m_port.port, m_port.readSize, m_port.writeSize, m_port.pipeName) ==
           RouterAutomation::Result::Done;
}

Registration::Outcome Registration::Renew()
{
    Outcome outcome;
    if (m_router.IsCreated()) {
        if (Register()) {
            return outcome;
        }
        outcome.routerLost = true;
        if (!m_port.restartsRouter) {
            m_ended = With(MORVANE_E_ROUTER_GONE, m_router.Error());
        }
        m_router.Release();
    }
    if (!m_ended.IsOk()) {
        outcome.result = m_ended;
        return outcome;
    }
    if (m_router.Create(m_port.binding) == RouterAutomation::Result::Done) {
        if (Register()) {
            return outcome;
        }
        // The object was the last that an ending router gave.
        outcome.result = With(MORVANE_E_ROUTER_GONE, m_router.Error());
        outcome.metEnding = true;
        m_router.Release();
        return outcome;
    }
    outcome.result = ResultOfActivation(m_router.Error(), !ProcessesNamed(RouterName).empty());
    outcome.metEnding = MetEndingRouter(m_router.Error());
    return outcome;
}

} // namespace clientlib
