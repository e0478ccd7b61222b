// Calls the router's automation object, with a limit of time.
#include "tools/RouterLog/pc/GatherFacts.h"
#include "win32/Event.h"
#include "win32/Windows.h"

#include <objbase.h>

#include <atomic>
#include <memory>
#include <thread>

namespace routerlog {

namespace {

constexpr CLSID RouterClass = {0x7A1C5E20, 0x3B94, 0x4F0D, {0x9E, 0x61, 0x2C, 0x8B, 0x7D, 0x4F, 0x1A, 0x93}};

/// Shared with the calling thread, which may outlive its caller.
struct Call
{
    win32::Event done{win32::Event::Kind::ManualReset};
    std::atomic<HRESULT> result{E_FAIL};
};

/// Creates the object and asks it for a name, which needs its type library and changes nothing.
HRESULT CallRouter()
{
    IDispatch* object = nullptr;
    HRESULT result = ::CoCreateInstance(RouterClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                        reinterpret_cast<void**>(&object));
    if (FAILED(result)) {
        return result;
    }
    wchar_t name[] = L"Register";
    LPOLESTR names[] = {name};
    DISPID id = 0;
    result = object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
    object->Release();
    return result;
}

} // namespace

Activation Activate(std::chrono::milliseconds limit)
{
    const auto call = std::make_shared<Call>();
    // Detached: nothing ends a call to a program that hangs, but the end of the process.
    std::thread([call] {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        call->result = CallRouter();
        call->done.Set();
    }).detach();
    if (!call->done.Wait(static_cast<DWORD>(limit.count()))) {
        return {Activation::Result::Hung, 0};
    }
    const HRESULT result = call->result;
    return SUCCEEDED(result) ? Activation{}
                             : Activation{Activation::Result::Failed, static_cast<std::uint32_t>(result)};
}

} // namespace routerlog
