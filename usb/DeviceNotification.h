// A window's registration for the coming and going of devices.
#pragma once

#include "win32/Windows.h"

#include <dbt.h>

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

    /// `filter`: what the window is to hear of ("RegisterDeviceNotificationA function"). Replaces the
    /// registration.
    template <class Filter>
    void Register(HWND window, Filter filter) noexcept
    {
        Unregister();
        m_registration = ::RegisterDeviceNotificationA(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
    }

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
