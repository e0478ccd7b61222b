#include "usb/DeviceNotification.h"

#include <dbt.h>

namespace usb {

void DeviceNotification::RegisterClass(HWND window, const GUID& interfaceClass) noexcept
{
    DEV_BROADCAST_DEVICEINTERFACE_A filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = interfaceClass;
    Unregister();
    m_registration = ::RegisterDeviceNotificationA(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

void DeviceNotification::RegisterDevice(HWND window, HANDLE device) noexcept
{
    DEV_BROADCAST_HANDLE filter{};
    filter.dbch_size = sizeof filter;
    filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
    filter.dbch_handle = device;
    Unregister();
    m_registration = ::RegisterDeviceNotificationA(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

} // namespace usb
