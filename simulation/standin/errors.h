// Windows' error codes, as far as the core or the stand-in names them.
#pragma once

#define ERROR_SUCCESS              0
#define ERROR_INVALID_FUNCTION     1u
#define ERROR_FILE_NOT_FOUND       2u
#define ERROR_PATH_NOT_FOUND       3u
#define ERROR_ACCESS_DENIED        5u
#define ERROR_INVALID_HANDLE       6u
#define ERROR_NOT_ENOUGH_MEMORY    8u
#define ERROR_BAD_COMMAND          22u
#define ERROR_GEN_FAILURE          31u
#define ERROR_SHARING_VIOLATION    32u
#define ERROR_NOT_SUPPORTED        50u
#define ERROR_INVALID_PARAMETER    87u
#define ERROR_BROKEN_PIPE          109u
#define ERROR_DISK_FULL            112u
#define ERROR_INSUFFICIENT_BUFFER  122u
#define ERROR_BUSY                 170u
#define ERROR_ALREADY_EXISTS       183u
#define ERROR_PIPE_BUSY            231u
#define ERROR_NO_DATA              232u
#define ERROR_PIPE_NOT_CONNECTED   233u
#define ERROR_MORE_DATA            234u
#define ERROR_NO_MORE_ITEMS        259u
#define ERROR_PIPE_CONNECTED       535u
#define ERROR_PIPE_LISTENING       536u
#define ERROR_OPERATION_ABORTED    995u
#define ERROR_IO_INCOMPLETE        996u
#define ERROR_IO_PENDING           997u
#define ERROR_IO_DEVICE            1117u
#define ERROR_DEVICE_NOT_CONNECTED 1167u
#define ERROR_NOT_FOUND            1168u
#define ERROR_INVALID_THREAD_ID    1444u
#define ERROR_NO_SYSTEM_RESOURCES  1450u
#define ERROR_TIMEOUT              1460u
#define ERROR_NOT_ENOUGH_QUOTA     1816u
