#include "host/CMorvaneUSBRouter.h"

#include "ports/CCDevicePortPipe.h"
#include "trace/Trace.h"
#include "win32/ModulePath.h"
#include "win32/Text.h"

#include <oleauto.h>
#include <string_view>

namespace {

/// The port's name up to its last dot.
std::wstring DeviceNameOf(std::wstring_view portName)
{
    return std::wstring(portName.substr(0, portName.rfind(L'.')));
}

PortAddress AddressOf(LONG deviceType, ULONG port)
{
    return {deviceType, static_cast<std::int32_t>(port)};
}

/// The description of IMorvaneUSBRouter that IDispatch works by, from the type library in this program's
/// resources.
HRESULT LoadTypeInfo(ComPointer<ITypeInfo>& info)
{
    const std::optional<std::wstring> path = win32::ModulePath();
    if (!path) {
        return HRESULT_FROM_WIN32(::GetLastError());
    }
    ITypeLib* library = nullptr;
    HRESULT result = ::LoadTypeLibEx(path->c_str(), REGKIND_NONE, &library);
    if (SUCCEEDED(result)) {
        const ComPointer<ITypeLib> owner(library);
        ITypeInfo* found = nullptr;
        result = library->GetTypeInfoOfGuid(__uuidof(IMorvaneUSBRouter), &found);
        info.reset(found);
    }
    return result;
}

} // namespace

CMorvaneUSBRouter::CMorvaneUSBRouter(IRouterHost& host) : m_host(host)
{
    m_host.AddServerLock();
    Trace(trace::RouterChannel, trace::Dispatch, "CMorvaneUSBRouter::CMorvaneUSBRouter()");
}

// Without end, and the main thread with it, when another object has unregistered one of our ports: Unregister then
// returns before it erases the pair. That is deliberate; do not change it by erasing in Unregister's early
// return.
CMorvaneUSBRouter::~CMorvaneUSBRouter()
{
    Trace(trace::RouterChannel, trace::Dispatch, "CMorvaneUSBRouter::~CMorvaneUSBRouter()");
    while (!m_registeredPorts.empty()) {
        const PortAddress address = *m_registeredPorts.begin();
        Unregister(address.deviceType, static_cast<ULONG>(address.port));
    }
}

HRESULT CMorvaneUSBRouter::Register(LONG nDeviceType, ULONG nPort, LONG nReadBufferSize, LONG nWriteBufferSize,
                                    BSTR bstrPortName) noexcept
{
    try {
        if (const PortAddress address = AddressOf(nDeviceType, nPort); m_host.Ports().FindPort(address) == nullptr)
        {
            AddPort(address, nReadBufferSize, nWriteBufferSize, bstrPortName);
        }
    } catch (...) {
        // A client learns of a port that could not be made when it cannot open the port's pipe.
    }
    return S_OK;
}

void CMorvaneUSBRouter::AddPort(PortAddress address, LONG readBufferSize, LONG writeBufferSize, BSTR portName)
{
    const std::wstring_view name = portName != nullptr ? portName : L"";
    auto pipe = std::make_unique<CCDevicePortPipe>(m_host.Transport(), address, win32::ToAnsi(name),
                                                   readBufferSize, writeBufferSize, m_host.OptionsOfPorts());
    m_host.Names().RegisterDeviceName(DeviceNameOf(name), address.deviceType);

    // Recorded first, so that a port in the table always has an owner.
    const auto recorded = m_registeredPorts.insert(address);
    try {
        m_host.Ports().AddPort(address, std::move(pipe));
    } catch (...) {
        if (recorded.second) {
            m_registeredPorts.erase(recorded.first);
        }
        throw;
    }
}

HRESULT CMorvaneUSBRouter::Unregister(LONG nDeviceType, ULONG nPort) noexcept
{
    const PortAddress address = AddressOf(nDeviceType, nPort);
    if (m_host.Ports().FindPort(address) == nullptr) {
        return S_OK;
    }
    m_host.Ports().RemovePort(address).reset();
    m_registeredPorts.erase(address);
    return S_OK;
}

HRESULT CMorvaneUSBRouter::QueryInterface(REFIID id, void** object) noexcept
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (id != __uuidof(IUnknown) && id != __uuidof(IDispatch) && id != __uuidof(IMorvaneUSBRouter)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMorvaneUSBRouter*>(this);
    AddRef();
    return S_OK;
}

ULONG CMorvaneUSBRouter::Release() noexcept
{
    const ULONG left = --m_references;
    if (left == 0) {
        IRouterHost& host = m_host;
        delete this;
        host.ReleaseServerLock(); // the last one ends the process
    }
    return left;
}

HRESULT CMorvaneUSBRouter::NeedTypeInfo() noexcept
{
    HRESULT result = S_OK;
    try {
        result = m_typeInfo != nullptr ? S_OK : LoadTypeInfo(m_typeInfo);
    } catch (...) {
        result = E_OUTOFMEMORY;
    }
    if (FAILED(result)) {
        Trace(trace::RouterChannel, trace::General, "CMorvaneUSBRouter: no type library, error 0x%08lX",
              static_cast<unsigned long>(result));
    }
    return result;
}

HRESULT CMorvaneUSBRouter::GetTypeInfoCount(UINT* count) noexcept
{
    if (count == nullptr) {
        return E_POINTER;
    }
    *count = 1;
    return S_OK;
}

HRESULT CMorvaneUSBRouter::GetTypeInfo(UINT index, LCID /*language*/, ITypeInfo** info) noexcept
{
    if (info == nullptr) {
        return E_POINTER;
    }
    *info = nullptr;
    if (index != 0) {
        return DISP_E_BADINDEX;
    }
    const HRESULT result = NeedTypeInfo();
    if (SUCCEEDED(result)) {
        *info = m_typeInfo.get();
        (*info)->AddRef();
    }
    return result;
}

HRESULT CMorvaneUSBRouter::GetIDsOfNames(REFIID /*reserved*/, LPOLESTR* names, UINT count, LCID /*language*/,
                                         DISPID* ids) noexcept
{
    const HRESULT result = NeedTypeInfo();
    return SUCCEEDED(result) ? m_typeInfo->GetIDsOfNames(names, count, ids) : result;
}

HRESULT CMorvaneUSBRouter::Invoke(DISPID id, REFIID /*reserved*/, LCID /*language*/, WORD flags,
                                  DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                  UINT* badArgument) noexcept
{
    const HRESULT loaded = NeedTypeInfo();
    return SUCCEEDED(loaded) ? m_typeInfo->Invoke(static_cast<IMorvaneUSBRouter*>(this), id, flags, parameters,
                                                  result, exception, badArgument)
                             : loaded;
}
