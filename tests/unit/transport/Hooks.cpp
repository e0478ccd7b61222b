#include "tests/unit/transport/Hooks.h"

#include "tests/support/WaitUntil.h"

#include <cstdint>

namespace hooks {

namespace {

template <class Call>
Call Original(const char* library, const char* name)
{
    return reinterpret_cast<Call>(reinterpret_cast<void*>(::GetProcAddress(::LoadLibraryA(library), name)));
}

void WINAPI CountingSleep(DWORD milliseconds)
{
    naps += milliseconds == 1 ? 1 : 0;
    if (milliseconds != 1 || !shortNaps || naps % 2 == 0) {
        ::SleepEx(milliseconds, FALSE); // the call that is counted
    }
}

BOOL WithoutEvent(BOOL done, OVERLAPPED* overlapped, bool isWanted)
{
    if (done != FALSE && isWanted && overlapped != nullptr) {
        ::ResetEvent(overlapped->hEvent);
    }
    return done;
}

BOOL WINAPI Write(HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* overlapped)
{
    static const auto original = Original<decltype(&::WriteFile)>("kernel32.dll", "WriteFile");
    if (overlapped != nullptr && refusedWrites > 0) {
        --refusedWrites;
        ::ResetEvent(overlapped->hEvent);
        ::SetLastError(ERROR_IO_DEVICE);
        return FALSE;
    }
    return WithoutEvent(original(file, data, length, written, overlapped), overlapped, writesWithoutEvent);
}

BOOL WINAPI Read(HANDLE file, void* buffer, DWORD length, DWORD* read, OVERLAPPED* overlapped)
{
    static const auto original = Original<decltype(&::ReadFile)>("kernel32.dll", "ReadFile");
    if (overlapped != nullptr && readsWithoutEvent) {
        support::WaitUntil([file] {
            DWORD available = 0;
            return !readsWithoutEvent ||
                   ::PeekNamedPipe(file, nullptr, 0, nullptr, &available, nullptr) == FALSE || available != 0;
        });
    }
    return WithoutEvent(original(file, buffer, length, read, overlapped), overlapped, readsWithoutEvent);
}

uintptr_t BeginThread(void* security, unsigned stack, unsigned(__stdcall* entry)(void*), void* argument,
                      unsigned flags, unsigned* id)
{
    using Begin = uintptr_t (*)(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned, unsigned*);
    static const auto original = Original<Begin>("msvcrt.dll", "_beginthreadex");
    if (refusedThreads > 0) {
        --refusedThreads;
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    return original(security, stack, entry, argument, flags, id);
}

BOOL WINAPI SetInformation(HANDLE, PROCESS_INFORMATION_CLASS kind, void* information, DWORD size)
{
    const auto& state = *static_cast<PROCESS_POWER_THROTTLING_STATE*>(information);
    throttlingCleared += kind == ProcessPowerThrottling && size == sizeof state && state.Version == 1 &&
                                 state.ControlMask == PROCESS_POWER_THROTTLING_IGNORE_TIMER_RESOLUTION &&
                                 state.StateMask == 0
                           ? 1
                           : 0;
    ::SetLastError(ERROR_INVALID_PARAMETER); // as Windows 10 does
    return FALSE;
}

} // namespace

} // namespace hooks

// The linker's names for what is imported.
extern "C" {
void(WINAPI* __imp_Sleep)(DWORD) = hooks::CountingSleep;                                       // NOLINT
BOOL(WINAPI* __imp_WriteFile)(HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) = hooks::Write; // NOLINT
BOOL(WINAPI* __imp_ReadFile)(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) = hooks::Read;         // NOLINT
uintptr_t (*__imp__beginthreadex)(void*, unsigned, unsigned(__stdcall*)(void*), void*, unsigned,
                                  unsigned*) = // NOLINT
    hooks::BeginThread;
BOOL(WINAPI* __imp_SetProcessInformation)
(HANDLE, PROCESS_INFORMATION_CLASS, void*, DWORD) = // NOLINT
    hooks::SetInformation;
}
