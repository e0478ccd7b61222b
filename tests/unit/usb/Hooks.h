// What the import library has for calls of Windows is not taken in this program: tests may step in between.
#pragma once

#include "win32/Windows.h"

#include <functional>
#include <vector>

namespace usbtest {

/// The arguments of one DeviceIoControl.
struct ControlCall
{
    HANDLE device;
    DWORD code;
    void* input;
    DWORD inputLength;
    void* output;
    DWORD outputLength;
    DWORD* returned;
    OVERLAPPED* overlapped;
};

/// As the product would have called it.
BOOL CallWindows(const ControlCall& call);

/// While it lives, every DeviceIoControl of the test's thread goes through `hook`. One at a time.
class ControlHook
{
public:
    using Hook = std::function<BOOL(const ControlCall&)>;
    explicit ControlHook(Hook hook);
    ~ControlHook();
    ControlHook(const ControlHook&) = delete;
    ControlHook& operator=(const ControlHook&) = delete;
};

/// A registration for notifications, real and seen.
struct Registration
{
    HDEVNOTIFY handle;
    HANDLE recipient;
    DWORD type;     // DBT_DEVTYP_DEVICEINTERFACE or DBT_DEVTYP_HANDLE
    GUID classGuid; // of the first
    HANDLE device;  // of the second
};

/// The registrations that have not been ended, in their order.
std::vector<Registration> Registrations();

} // namespace usbtest
