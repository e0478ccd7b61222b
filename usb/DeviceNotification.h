// A window's registration for the coming and going of devices.
#pragma once

#include "win32/Windows.h"

#include <utility>

namespace usb {

/// Sole owner of one registration. One thread.
class DeviceNotification
{
public:
    DeviceNotification() noexcept = default;
    ~DeviceNotification() { Unregister(); }
    DeviceNotification(const DeviceNotification&) = delete;
    DeviceNotification& operator=(const DeviceNotification&) = delete;

    /// For devices of the class that come or go.
    void RegisterClass(HWND window, const GUID& interfaceClass) noexcept;
    /// For the fate of the one device that is open as `device`.
    void RegisterDevice(HWND window, HANDLE device) noexcept;

    /// Whether the registration could be ended; true as well when there is none.
    bool Unregister() noexcept
    {
        const HDEVNOTIFY old = std::exchange(m_registration, nullptr);
        return old == nullptr || ::UnregisterDeviceNotification(old) != FALSE;
    }

private:
    HDEVNOTIFY m_registration = nullptr;
};

} // namespace usb
