#include "tests/unit/usb/Hooks.h"

#include <dbt.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace usbtest {

namespace {

template <class Call>
Call Original(const char* library, const char* name)
{
    return reinterpret_cast<Call>(reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryA(library), name)));
}

thread_local ControlHook::Hook hook;

std::mutex registrationsLock;
std::vector<Registration> registrations;

BOOL WINAPI Control(HANDLE device, DWORD code, void* input, DWORD inputLength, void* output, DWORD outputLength,
                    DWORD* returned, OVERLAPPED* overlapped)
{
    const ControlCall call{device, code, input, inputLength, output, outputLength, returned, overlapped};
    return hook ? hook(call) : CallWindows(call);
}

HDEVNOTIFY WINAPI Register(HANDLE recipient, void* filter, DWORD flags)
{
    static const auto original =
        Original<decltype(&::RegisterDeviceNotificationA)>("user32.dll", "RegisterDeviceNotificationA");
    const HDEVNOTIFY handle = original(recipient, filter, flags);
    const DWORD type = static_cast<DEV_BROADCAST_HDR*>(filter)->dbch_devicetype;
    Registration made{handle, recipient, type, {}, nullptr};
    if (type == DBT_DEVTYP_DEVICEINTERFACE) {
        made.classGuid = static_cast<DEV_BROADCAST_DEVICEINTERFACE_A*>(filter)->dbcc_classguid;
    } else {
        made.device = static_cast<DEV_BROADCAST_HANDLE*>(filter)->dbch_handle;
    }
    const std::lock_guard guard(registrationsLock);
    registrations.push_back(made);
    return handle;
}

BOOL WINAPI Unregister(HDEVNOTIFY handle)
{
    static const auto original =
        Original<decltype(&::UnregisterDeviceNotification)>("user32.dll", "UnregisterDeviceNotification");
    {
        const std::lock_guard guard(registrationsLock);
        std::erase_if(registrations, [&](const Registration& each) { return each.handle == handle; });
    }
    return original(handle);
}

} // namespace

BOOL CallWindows(const ControlCall& call)
{
    static const auto original = Original<decltype(&::DeviceIoControl)>("kernel32.dll", "DeviceIoControl");
    return original(call.device, call.code, call.input, call.inputLength, call.output, call.outputLength,
                    call.returned, call.overlapped);
}

ControlHook::ControlHook(Hook wanted)
{
    hook = std::move(wanted);
}

ControlHook::~ControlHook()
{
    hook = nullptr;
}

std::vector<Registration> Registrations()
{
    const std::lock_guard guard(registrationsLock);
    return registrations;
}

} // namespace usbtest

extern "C" {
// The linker's names for what is imported.
BOOL(WINAPI* __imp_DeviceIoControl)(HANDLE, DWORD, void*, DWORD, void*, DWORD, DWORD*, OVERLAPPED*) = // NOLINT
    usbtest::Control;
HDEVNOTIFY(WINAPI* __imp_RegisterDeviceNotificationA)(HANDLE, void*, DWORD) = usbtest::Register; // NOLINT
BOOL(WINAPI* __imp_UnregisterDeviceNotification)(HDEVNOTIFY) = usbtest::Unregister;              // NOLINT
}
