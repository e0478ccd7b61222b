#include "host/HostWatch.h"

#include "win32/Handle.h"

#include <tlhelp32.h>

void HostWatch::DecideMode()
{
    m_standalone = FindProcess(GetFirstHostName()) == 0 && FindProcess(GetSecondHostName()) == 0;
}

std::uint32_t HostWatch::FindProcess(const std::wstring& name) const
{
    const win32::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        return 0;
    }
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more;
         more = ::Process32NextW(snapshot.Get(), &entry))
    {
        if (name == entry.szExeFile) {
            return entry.th32ProcessID;
        }
    }
    return 0;
}
