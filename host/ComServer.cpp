#include "host/ComServer.h"

#include "host/CMorvaneUSBRouter.h"
#include "trace/Trace.h"

#include <new>

// In the library of identifiers, but in none of the compiler's headers.
extern "C" const CLSID CLSID_GlobalOptions;

// Rules and values: "IGlobalOptions interface" and "GLOBALOPT_RO_FLAGS enumeration".
HRESULT SetComOptions(IGlobalOptions& options) noexcept
{
    const HRESULT rundown = options.Set(COMGLB_RO_SETTINGS, COMGLB_FAST_RUNDOWN);
    const HRESULT faults = options.Set(COMGLB_EXCEPTION_HANDLING, COMGLB_EXCEPTION_DONOT_HANDLE_ANY);
    return FAILED(rundown) ? rundown : faults;
}

HRESULT SetComOptions() noexcept
{
    void* object = nullptr;
    const HRESULT created =
        ::CoCreateInstance(CLSID_GlobalOptions, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IGlobalOptions), &object);
    if (FAILED(created)) {
        return created;
    }
    const ComPointer<IGlobalOptions> options(static_cast<IGlobalOptions*>(object));
    return SetComOptions(*options);
}

HRESULT ComServer::QueryInterface(REFIID id, void** object) noexcept
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

HRESULT ComServer::CreateInstance(IUnknown* outer, REFIID id, void** object) noexcept
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (outer != nullptr) {
        return CLASS_E_NOAGGREGATION;
    }
    if (m_isStopping) {
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

HRESULT ComServer::LockServer(BOOL lock) noexcept
{
    if (!lock) {
        ReleaseServerLock();
    } else if (m_isStopping) {
        return CO_E_SERVER_STOPPING;
    } else {
        AddServerLock();
    }
    return S_OK;
}

HRESULT ComServer::RegisterClassObjects() noexcept
{
    m_setOptions();   // refused by a Windows that does not know them: it then keeps its own way
    DWORD cookie = 0; // for revoking, which never happens
    return ::CoRegisterClassObject(__uuidof(MorvaneUSBRouter), this, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                   &cookie);
}

void ComServer::ReleaseServerLock() noexcept
{
    // At 0 Windows suspends the class object, so that it sends no new client here.
    if (::CoReleaseServerProcess() == 0) {
        m_isStopping = true;
        m_quit.Post();
    }
}
