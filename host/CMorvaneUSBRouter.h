// The automation object through which a client registers its ports.
//
// All calls arrive on the main thread, in its single-threaded apartment, one at a time.
#pragma once

#include "host/ComPointer.h"
#include "host/RouterHost.h"
#include "win32/Windows.h"

#include <MorvanePortRouter.h>
#include <cstdint>
#include <set>
#include <utility>

/// Created with one reference; deletes itself with the last. Holds one server lock for its lifetime.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only its own Release may delete it
class CMorvaneUSBRouter final : public IMorvaneUSBRouter
{
public:
    /// `host` is borrowed and outlives every object.
    explicit CMorvaneUSBRouter(IRouterHost& host);
    CMorvaneUSBRouter(const CMorvaneUSBRouter&) = delete;
    CMorvaneUSBRouter& operator=(const CMorvaneUSBRouter&) = delete;

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID id, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() noexcept override;

    // IDispatch, by the type library
    STDMETHODIMP GetTypeInfoCount(UINT* count) noexcept override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID language, ITypeInfo** info) noexcept override;
    STDMETHODIMP GetIDsOfNames(REFIID reserved, LPOLESTR* names, UINT count, LCID language,
                               DISPID* ids) noexcept override;
    STDMETHODIMP Invoke(DISPID id, REFIID reserved, LCID language, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* badArgument) noexcept override;

    // IMorvaneUSBRouter; both return S_OK in every case.

    /// Serves a port unless its address is registered already, by whichever object.
    STDMETHODIMP Register(LONG nDeviceType, ULONG nPort, LONG nReadBufferSize, LONG nWriteBufferSize,
                          BSTR bstrPortName) noexcept override;
    /// Ends a port, whichever object registered it.
    STDMETHODIMP Unregister(LONG nDeviceType, ULONG nPort) noexcept override;

private:
    /// Ends the ports that this object registered; see the definition.
    ~CMorvaneUSBRouter();

    void AddPort(PortAddress address, LONG readBufferSize, LONG writeBufferSize, BSTR portName);
    HRESULT NeedTypeInfo() noexcept;

    IRouterHost& m_host;
    ULONG m_references = 1;
    ComPointer<ITypeInfo> m_typeInfo; // null until it is needed
    std::set<PortAddress> m_registeredPorts;
};
