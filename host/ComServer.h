// The router as a COM server: its class object and the count of what keeps the process alive.
//
// Main thread only. The class object is registered once and never revoked: the process ends with it.
#pragma once

#include "host/QuitRequest.h"
#include "host/RouterHost.h"
#include "win32/Windows.h"

#include <objbase.h>
#include <objidl.h>

/// Has clients that died run down at once, not after six minutes, and a fault in a call end the process, which COM
/// would let go on in a damaged state. Main thread, after CoInitialize and before a class object is registered;
/// COM takes each setting once. Returns the first failure: a Windows without a setting keeps its own way.
HRESULT SetComOptions(IGlobalOptions& options) noexcept;
/// The same with COM's own object.
HRESULT SetComOptions() noexcept;

/// The class object itself, which creates automation objects. References to it are not counted; a client that
/// wants to keep the process alive by it calls LockServer.
class ComServer final : public IClassFactory
{
public:
    using SetOptions = HRESULT (*)() noexcept;

    /// `quit` is posted by the last release, and must live as long. `setOptions` is called before the class object
    /// is registered.
    ComServer(IRouterHost& host, QuitRequest& quit, SetOptions setOptions = &SetComOptions) noexcept
        : m_host(host), m_quit(quit), m_setOptions(setOptions)
    {
    }
    virtual ~ComServer() = default;
    ComServer(const ComServer&) = delete;
    ComServer& operator=(const ComServer&) = delete;

    /// COM must be initialised on this thread.
    HRESULT RegisterClassObjects() noexcept;

    /// One for each thing that keeps the process alive. The last release ends it.
    void AddServerLock() noexcept { ::CoAddRefServerProcess(); }
    void ReleaseServerLock() noexcept;
    /// True once the last lock was released: nothing may come to life any more.
    bool IsStopping() const noexcept { return m_isStopping; }

    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return 2; }
    STDMETHODIMP_(ULONG) Release() noexcept override { return 1; }

    /// CO_E_SERVER_STOPPING once the last server lock was released: a call that was already on its way would get
    /// an object that dies with the process a moment later.
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID id, void** object) noexcept override;
    STDMETHODIMP LockServer(BOOL lock) noexcept override;

private:
    IRouterHost& m_host;
    QuitRequest& m_quit;
    const SetOptions m_setOptions;
    bool m_isStopping = false; // never taken back: the end is on its way
};
