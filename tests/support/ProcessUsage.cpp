#include "tests/support/ProcessUsage.h"

#include "win32/Handle.h"

#include <tlhelp32.h>
#include <winternl.h>

#include <cstdint>
#include <cstring>

// From the list of all processes: GetProcessHandleCount and GetProcessMemoryInfo tell nothing of another process
// under Wine, while the list is right there and on Windows.
ProcessUsage UsageOf(DWORD processId)
{
    using Query = NTSTATUS(WINAPI*)(SYSTEM_INFORMATION_CLASS, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<std::uint64_t> buffer(1u << 16);
    ULONG length = 0;
    if (query(SystemProcessInformation, buffer.data(), static_cast<ULONG>(buffer.size() * sizeof buffer[0]),
              &length) < 0)
    {
        return {};
    }
    // Wine does not align the entries of the list to what the structure asks for.
    const auto* at = reinterpret_cast<const std::uint8_t*>(buffer.data());
    for (;;) {
        SYSTEM_PROCESS_INFORMATION process;
        std::memcpy(&process, at, sizeof process);
        if (reinterpret_cast<std::uintptr_t>(process.UniqueProcessId) == processId) {
            return {process.HandleCount, process.VirtualMemoryCounters.PagefileUsage, process.NumberOfThreads};
        }
        if (process.NextEntryOffset == 0) {
            return {};
        }
        at += process.NextEntryOffset;
    }
}

std::vector<DWORD> ThreadsOf(DWORD processId)
{
    std::vector<DWORD> threads;
    const win32::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Thread32First(snapshot.Get(), &entry); more != FALSE;
         more = ::Thread32Next(snapshot.Get(), &entry))
    {
        if (entry.th32OwnerProcessID == processId) {
            threads.push_back(entry.th32ThreadID);
        }
    }
    return threads;
}
