// Stand-in for <setupapi.h>: device interfaces.
#pragma once

#include "simulation/standin/types.h"

#define DIGCF_PRESENT         2u
#define DIGCF_DEVICEINTERFACE 0x10u

struct SP_DEVICE_INTERFACE_DATA
{
    DWORD cbSize;
    GUID InterfaceClassGuid;
    DWORD Flags;
    ULONG_PTR Reserved;
};

#pragma pack(push, 4)
struct SP_DEVICE_INTERFACE_DETAIL_DATA_A
{
    DWORD cbSize;
    char DevicePath[4];
};
#pragma pack(pop)

HDEVINFO SetupDiGetClassDevsA(const GUID* interfaceClass, const char* enumerator, HWND window, DWORD flags);
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, void* device, const GUID* interfaceClass, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA* found);
BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* found,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD size, DWORD* needed,
                                      void* device);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set);
