// The router as a COM server: its class object and the count of what keeps the process alive.
//
// Main thread only. The class object is registered once and never revoked: the process ends with it.
#pragma once

#include "host/QuitRequest.h"
#include "host/RouterHost.h"
#include "win32/Windows.h"

#include <objbase.h>
#include <objidl.h>

/// How COM treats this process. Clients that died are run down at once, not after six minutes, and COM catches no
/// fault of a call: the process ends instead of serving on in a damaged state. Main thread, after CoInitialize and
/// before a class object is registered; COM takes each setting once. A Windows that knows a setting not keeps its
/// own way; the first failure is returned.
HRESULT SetComOptions(IGlobalOptions& options) noexcept;
/// The same with COM's own object.
HRESULT SetComOptions() noexcept;

/// Creates automation objects. Its lifetime is the server's, so references to it are not counted; a client that
/// wants to keep the process alive by it calls LockServer.
class CMorvaneUSBRouterFactory final : public IClassFactory
{
public:
    explicit CMorvaneUSBRouterFactory(IRouterHost& host) noexcept : m_host(host) {}
    virtual ~CMorvaneUSBRouterFactory() = default;
    CMorvaneUSBRouterFactory(const CMorvaneUSBRouterFactory&) = delete;
    CMorvaneUSBRouterFactory& operator=(const CMorvaneUSBRouterFactory&) = delete;

    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return 2; }
    STDMETHODIMP_(ULONG) Release() noexcept override { return 1; }

    /// CO_E_SERVER_STOPPING once the last server lock was released: a call that was already on its way would get
    /// an object that dies with the process a moment later.
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID id, void** object) noexcept override;
    STDMETHODIMP LockServer(BOOL lock) noexcept override;

private:
    IRouterHost& m_host;
};

class ComServer
{
public:
    using SetOptions = HRESULT (*)() noexcept;

    /// `quit` is posted by the last release, and must live as long. `setOptions` is called before the class object
    /// is registered.
    ComServer(IRouterHost& host, QuitRequest& quit, SetOptions setOptions = &SetComOptions) noexcept
        : m_factory(host), m_quit(quit), m_setOptions(setOptions)
    {
    }
    ComServer(const ComServer&) = delete;
    ComServer& operator=(const ComServer&) = delete;

    /// COM must be initialised on this thread.
    HRESULT RegisterClassObjects() noexcept;

    void AddLock() noexcept { ::CoAddRefServerProcess(); }
    void ReleaseLock() noexcept;
    bool IsStopping() const noexcept { return m_isStopping; }

private:
    CMorvaneUSBRouterFactory m_factory;
    QuitRequest& m_quit;
    const SetOptions m_setOptions;
    bool m_isStopping = false; // never taken back: the end is on its way
};
