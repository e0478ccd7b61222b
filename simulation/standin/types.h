// The types of Windows. DWORD is `unsigned long` there and 32 bits wide; here it has the width.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define __stdcall
#define __cdecl

using BOOL = int;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using WCHAR = wchar_t; // 4 bytes here
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using UINT = unsigned;
using MMRESULT = UINT;
using LONG = std::int32_t;
using LSTATUS = LONG;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using ULONG_PTR = std::uintptr_t;
using LPVOID = void*;
using PVOID = void*;
using PSID = void*;
using HANDLE = void*;
using HDEVINFO = void*;
using HDEVNOTIFY = void*;
using HWND = struct StandInWindow*;
using HMENU = struct StandInMenu*;
using UINT_PTR = std::uintptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using SENDASYNCPROC = void (*)(HWND, UINT, ULONG_PTR, LRESULT);
using HMODULE = struct StandInModule*;
using HKEY = struct StandInKey*;
using REGSAM = DWORD;
using FARPROC = long (*)();

struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2, Data3;
    std::uint8_t Data4[8];
};

union LARGE_INTEGER {
    LONGLONG QuadPart;
};

struct MSG
{
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

struct FILETIME
{
    DWORD dwLowDateTime, dwHighDateTime;
};

struct SYSTEMTIME
{
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

struct OVERLAPPED
{
    ULONG_PTR Internal, InternalHigh;
    union {
        struct
        {
            DWORD Offset, OffsetHigh;
        } At;
        PVOID Pointer;
    };
    HANDLE hEvent;
};

using LPOVERLAPPED = OVERLAPPED*;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
using LPCVOID = const void*;
using LPCSTR = const char*;
using LPCWSTR = const wchar_t*;
using LPDWORD = DWORD*;
using PHANDLE = HANDLE*;

struct CRITICAL_SECTION
{
    std::uint32_t magic;
    int owner, depth, waiting;
};

struct CONDITION_VARIABLE
{
    int unused;
};

struct SRWLOCK
{
    int owner, shared, waiting, writersWaiting;
};

struct SID_AND_ATTRIBUTES
{
    PSID Sid;
    DWORD Attributes;
};

struct TOKEN_USER
{
    SID_AND_ATTRIBUTES User;
};

struct PROCESS_POWER_THROTTLING_STATE
{
    ULONG Version, ControlMask, StateMask;
};
