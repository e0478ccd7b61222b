#include "host/ComServer.h"

#include "host/CMorvaneUSBRouter.h"
#include "trace/Trace.h"

#include <objbase.h>
#include <new>

HRESULT CMorvaneUSBRouterFactory::QueryInterface(REFIID id, void** object) noexcept
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (id != __uuidof(IUnknown) && id != __uuidof(IClassFactory)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
}

HRESULT CMorvaneUSBRouterFactory::CreateInstance(IUnknown* outer, REFIID id, void** object) noexcept
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (outer != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    if (m_host.IsStopping()) {
        return CO_E_SERVER_STOPPING;
    }
    auto* const router = new (std::nothrow) CMorvaneUSBRouter(m_host);
    if (router == nullptr) {
        Trace(trace::RouterChannel, trace::General, "CMorvaneUSBRouterFactory::CreateInstance() no memory");
        return E_OUTOFMEMORY;
    }
    const HRESULT result = router->QueryInterface(id, object);
    router->Release();
    return result;
}

HRESULT CMorvaneUSBRouterFactory::LockServer(BOOL lock) noexcept
{
    if (!lock) {
        m_host.ReleaseServerLock();
    } else if (m_host.IsStopping()) {
        return CO_E_SERVER_STOPPING;
    } else {
        m_host.AddServerLock();
    }
    return S_OK;
}

HRESULT ComServer::RegisterClassObjects() noexcept
{
    m_setOptions();   // refused by a Windows that does not know them: it then keeps its own way
    DWORD cookie = 0; // for revoking, which never happens
    return ::CoRegisterClassObject(__uuidof(MorvaneUSBRouter), &m_factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                   &cookie);
}

void ComServer::AddLock() noexcept
{
    ::CoAddRefServerProcess();
}

void ComServer::ReleaseLock() noexcept
{
    // At 0 Windows suspends the class object, so that it sends no new client here.
    if (::CoReleaseServerProcess() == 0) {
        m_isStopping = true;
        m_quit.Post();
    }
}
