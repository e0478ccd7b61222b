// Stand-in for <windows.h>: what the core's sources name of Windows, on Linux and under the scheduler of
// simulation/kernel. Only what they use is here: an unknown call does not compile, an unknown flag is a fault.
#pragma once

#include "simulation/standin/constants.h"
#include "simulation/standin/errors.h"
#include "simulation/standin/types.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <cwchar>

DWORD GetLastError() noexcept;
void SetLastError(DWORD error) noexcept;
BOOL CloseHandle(HANDLE handle);

// Events, mutexes, waits.
HANDLE CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
HANDLE CreateMutexW(SECURITY_ATTRIBUTES* security, BOOL owned, const wchar_t* name);
BOOL ReleaseMutex(HANDLE mutex);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds);

// Threads and time.
void Sleep(DWORD milliseconds);
DWORD GetTickCount() noexcept;
ULONGLONG GetTickCount64() noexcept;
BOOL QueryPerformanceCounter(LARGE_INTEGER* ticks) noexcept;
BOOL QueryPerformanceFrequency(LARGE_INTEGER* ticksPerSecond) noexcept;
void GetLocalTime(SYSTEMTIME* time) noexcept;
BOOL SetThreadPriority(HANDLE thread, int priority);
DWORD GetCurrentThreadId() noexcept;
HANDLE GetCurrentProcess() noexcept;
BOOL CancelSynchronousIo(HANDLE thread);

// Locks.
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
BOOL SleepConditionVariableCS(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section, DWORD milliseconds);
void WakeConditionVariable(CONDITION_VARIABLE* condition);
void WakeAllConditionVariable(CONDITION_VARIABLE* condition);
void AcquireSRWLockShared(SRWLOCK* lock);
void ReleaseSRWLockShared(SRWLOCK* lock);
void AcquireSRWLockExclusive(SRWLOCK* lock);
BOOL TryAcquireSRWLockExclusive(SRWLOCK* lock);
void ReleaseSRWLockExclusive(SRWLOCK* lock);

// Files, pipes, devices.
HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security);
BOOL ConnectNamedPipe(HANDLE pipe, OVERLAPPED* record);
BOOL DisconnectNamedPipe(HANDLE pipe);
BOOL SetNamedPipeHandleState(HANDLE pipe, DWORD* mode, DWORD* maximum, DWORD* timeout);
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD flags, HANDLE pattern);
HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE pattern);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD length, DWORD* read, OVERLAPPED* record);
BOOL WriteFile(HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* record);
BOOL FlushFileBuffers(HANDLE file);
BOOL CancelIoEx(HANDLE file, OVERLAPPED* record);
BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* record, DWORD* transferred, BOOL wait);
BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inLength, LPVOID out, DWORD outLength,
                     DWORD* returned, OVERLAPPED* record);
/// The macro reads the record's status; here that is a call, so that the scheduler sees it.
bool StandInHasCompleted(const OVERLAPPED* record) noexcept;
#define HasOverlappedIoCompleted(record) StandInHasCompleted(record)

DWORD GetFileAttributesW(const wchar_t* name);
DWORD GetFileSize(HANDLE file, DWORD* high);
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* high, DWORD from);
BOOL CreateDirectoryW(const wchar_t* path, SECURITY_ATTRIBUTES* security);
BOOL MoveFileExW(const wchar_t* from, const wchar_t* to, DWORD flags);
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);

BOOL UnregisterDeviceNotification(HDEVNOTIFY registration);

// Messages: of threads, for there are no windows.
DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds, DWORD kinds);
BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags);
BOOL PostThreadMessageW(DWORD thread, UINT message, WPARAM word, LPARAM number);
BOOL PostMessageW(HWND window, UINT message, WPARAM word, LPARAM number);
BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM word, LPARAM number);
BOOL SendMessageCallbackW(HWND window, UINT message, WPARAM word, LPARAM number, SENDASYNCPROC answer,
                          ULONG_PTR data);
BOOL TranslateMessage(const MSG* message);
LRESULT DispatchMessageW(const MSG* message);

// The process.
DWORD GetModuleFileNameW(HMODULE module, wchar_t* to, DWORD size);
HMODULE LoadLibraryExW(const wchar_t* name, HANDLE reserved, DWORD flags);
FARPROC GetProcAddress(HMODULE library, const char* name);
BOOL SetProcessInformation(HANDLE process, int what, void* information, DWORD size);
BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);
BOOL GetTokenInformation(HANDLE token, int what, void* information, DWORD size, DWORD* needed);
void* LocalFree(void* memory);

// Text.
int MultiByteToWideChar(UINT page, DWORD flags, const char* from, int length, wchar_t* to, int size);
int WideCharToMultiByte(UINT page, DWORD flags, const wchar_t* from, int length, char* to, int size,
                        const char* substitute, BOOL* substituted);

// The registry.
LSTATUS RegOpenKeyExW(HKEY parent, const wchar_t* name, DWORD options, REGSAM access, HKEY* key);
LSTATUS RegCreateKeyExW(HKEY parent, const wchar_t* name, DWORD reserved, wchar_t* type, DWORD options,
                        REGSAM access, SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* disposition);
LSTATUS RegCloseKey(HKEY key);
LSTATUS RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);
LSTATUS RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
LSTATUS RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* reserved, wchar_t* type,
                      DWORD* typeLength, FILETIME* written);

// What MinGW's <stdio.h> and <time.h> have beyond the standard.
std::FILE* _wfopen(const wchar_t* name, const wchar_t* mode);
int localtime_s(std::tm* to, const std::time_t* from);

// What only the unit tests call.
BOOL DuplicateHandle(HANDLE fromProcess, HANDLE handle, HANDLE toProcess, HANDLE* copy, DWORD access,
                     BOOL inherits, DWORD options);
BOOL GetHandleInformation(HANDLE handle, DWORD* flags);
DWORD GetCurrentProcessId() noexcept;
BOOL DeleteFileW(const wchar_t* path);
BOOL GetProcessHandleCount(HANDLE process, DWORD* count);
HANDLE CreateNamedPipeW(const wchar_t* name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* security);
BOOL PeekNamedPipe(HANDLE pipe, LPVOID buffer, DWORD size, DWORD* read, DWORD* available, DWORD* leftOfMessage);
