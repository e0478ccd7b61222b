// Stand-in for <dbt.h> and the registration of device notifications, for which the core has no window.
#pragma once

#include "simulation/standin/types.h"

#define DBT_DEVTYP_DEVICEINTERFACE  5u
#define DBT_DEVTYP_HANDLE           6u
#define DEVICE_NOTIFY_WINDOW_HANDLE 0u

struct DEV_BROADCAST_DEVICEINTERFACE_A
{
    DWORD dbcc_size, dbcc_devicetype, dbcc_reserved;
    GUID dbcc_classguid;
    char dbcc_name[1];
};

struct DEV_BROADCAST_HANDLE
{
    DWORD dbch_size, dbch_devicetype, dbch_reserved;
    HANDLE dbch_handle;
};

HDEVNOTIFY RegisterDeviceNotificationA(void* recipient, void* filter, DWORD flags);
