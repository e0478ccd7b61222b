#include "bench/EmptyServer.h"

#include "bench/Measure.h"
#include "bench/Roles.h"
#include "win32/RegistryKey.h"

#include <objbase.h>
#include <oleauto.h>

#include <stdexcept>

namespace bench {

namespace {

constexpr CLSID EmptyServer = {0x8D1C6E54, 0x2F0B, 0x4B7A, {0x9E, 0x61, 0x5C, 0x70, 0x3A, 0xD2, 0x48, 0x1B}};
constexpr const wchar_t* Key = L"Software\\Classes\\CLSID\\{8D1C6E54-2F0B-4B7A-9E61-5C703AD2481B}";
constexpr const wchar_t* Ended = L"MorvaneBenchEmptyServerEnded"; // auto-reset event

/// On the server's main thread; the only one there is. Its last release ends the server.
class EmptyObject final : public IDispatch
{
public:
    virtual ~EmptyObject() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        if (id != IID_IUnknown && id != IID_IDispatch) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) {
            ::PostQuitMessage(0);
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }

private:
    ULONG m_references = 0;
};

/// Lives as long as the program.
class EmptyFactory final : public IClassFactory
{
public:
    virtual ~EmptyFactory() = default;
    explicit EmptyFactory(EmptyObject& object) : m_object(object) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        if (id != IID_IUnknown && id != IID_IClassFactory) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<IClassFactory*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID id, void** object) override
    {
        return m_object.QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    EmptyObject& m_object;
};

} // namespace

int PlayEmptyServer()
{
    ::CoInitialize(nullptr);
    EmptyObject object;
    EmptyFactory factory(object);
    DWORD cookie = 0;
    if (FAILED(::CoRegisterClassObject(EmptyServer, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie))) {
        return 1;
    }
    MSG message;
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
        ::DispatchMessageW(&message);
    }
    ::CoRevokeClassObject(cookie);
    ::CoUninitialize();
    const win32::KernelHandle ended(::CreateEventW(nullptr, FALSE, FALSE, Ended));
    ::SetEvent(ended.Get());
    return 0;
}

EmptyServerRegistration::EmptyServerRegistration()
{
    const std::wstring subkey = std::wstring(Key) + L"\\LocalServer32";
    const auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, subkey.c_str(), KEY_WRITE);
    if (!key) {
        throw std::runtime_error("the empty automation server can't be registered");
    }
    const std::wstring program = (support::ProgramFolder() / L"bench.exe").wstring();
    key.WriteString(nullptr, std::wstring(1, L'"') + program + L"\" --role server");
}

EmptyServerRegistration::~EmptyServerRegistration()
{
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, Key);
}

double EmptyServerRegistration::ActivationSeconds() const
{
    const win32::KernelHandle ended(::CreateEventW(nullptr, FALSE, FALSE, Ended));
    const Stopwatch watch;
    void* created = nullptr;
    if (FAILED(::CoCreateInstance(EmptyServer, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch, &created))) {
        throw std::runtime_error("the empty automation server does not start");
    }
    auto* const object = static_cast<IDispatch*>(created);
    UINT count = 1;
    const HRESULT called = object->GetTypeInfoCount(&count);
    const double seconds = watch.Seconds();
    object->Release();
    if (FAILED(called) || !support::WaitFor(ended.Get())) {
        throw std::runtime_error("the empty automation server does not end");
    }
    return seconds;
}

} // namespace bench
