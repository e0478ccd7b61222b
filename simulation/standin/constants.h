// Windows' constants, as far as the core names them.
#pragma once

#include <cstdint>

#define FALSE    0
#define TRUE     1
#define MAX_PATH 260

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(~std::uintptr_t{0}))
#define INFINITE             0xFFFFFFFFu
#define WAIT_OBJECT_0        0u
#define WAIT_ABANDONED       0x80u
#define WAIT_TIMEOUT         258u
#define WAIT_FAILED          0xFFFFFFFFu
#define STATUS_PENDING       0x103u
#define MAXIMUM_WAIT_OBJECTS 64
#define CONDITION_VARIABLE_INIT \
    {                           \
    }
#define SRWLOCK_INIT \
    {                \
    }

#define THREAD_PRIORITY_ABOVE_NORMAL 1

#define GENERIC_READ                 0x80000000u
#define GENERIC_WRITE                0x40000000u
#define GENERIC_ALL                  0x10000000u
#define CREATE_ALWAYS                2u
#define OPEN_EXISTING                3u
#define OPEN_ALWAYS                  4u
#define FILE_END                     2u
#define INVALID_FILE_SIZE            0xFFFFFFFFu
#define INVALID_SET_FILE_POINTER     0xFFFFFFFFu
#define MOVEFILE_REPLACE_EXISTING    1u
#define FILE_SHARE_READ              1u
#define FILE_SHARE_WRITE             2u
#define FILE_ATTRIBUTE_NORMAL        0x80u
#define FILE_FLAG_OVERLAPPED         0x40000000u
#define INVALID_FILE_ATTRIBUTES      0xFFFFFFFFu
#define PIPE_ACCESS_DUPLEX           3u
#define PIPE_TYPE_BYTE               0u
#define PIPE_TYPE_MESSAGE            4u
#define PIPE_READMODE_BYTE           0u
#define PIPE_READMODE_MESSAGE        2u
#define PIPE_WAIT                    0u
#define PIPE_REJECT_REMOTE_CLIENTS   8u
#define LOAD_LIBRARY_SEARCH_SYSTEM32 0x800u
#define CP_ACP                       0u

#define PROCESS_POWER_THROTTLING_CURRENT_VERSION         1
#define PROCESS_POWER_THROTTLING_IGNORE_TIMER_RESOLUTION 4
#define ProcessPowerThrottling                           4
#define TOKEN_QUERY                                      8u
#define TokenUser                                        1
#define SECURITY_MAX_SID_SIZE                            68

#define HKEY_CURRENT_USER       (reinterpret_cast<HKEY>(std::uintptr_t{0x80000001}))
#define HKEY_LOCAL_MACHINE      (reinterpret_cast<HKEY>(std::uintptr_t{0x80000002}))
#define KEY_READ                0x20019u
#define KEY_WRITE               0x20006u
#define KEY_ALL_ACCESS          0xF003Fu
#define REG_OPTION_NON_VOLATILE 0u
#define REG_SZ                  1u
#define REG_DWORD               4u

#define DUPLICATE_SAME_ACCESS 2u
#define REG_EXPAND_SZ         2u
#define REG_BINARY            3u
#define WM_QUIT               0x12u
#define WM_ENDSESSION         0x16u
#define WM_CANCELMODE         0x1Fu
#define WM_APP                0x8000u
#define QS_ALLINPUT           0x4FFu
#define QS_SENDMESSAGE        0x40u
#define PM_NOREMOVE           0u
#define PM_REMOVE             1u
#define PM_QS_SENDMESSAGE     (QS_SENDMESSAGE << 16)
