// Running programs and this one's rights.
#include "console/Console.h"
#include "tools/RouterLog/pc/GatherFacts.h"
#include "win32/Handle.h"

#include <tlhelp32.h>

#include <array>
#include <cwchar>

namespace routerlog {

namespace {

constexpr const wchar_t* RouterName = L"MorvanePortRouter.exe";
constexpr const wchar_t* HostNames[] = {L"Lumivista.exe", L"RouterProbe.exe"};
constexpr const wchar_t* Mutex = L"Local\\MorvanePortRouterMutex";

bool SameName(const wchar_t* left, const wchar_t* right)
{
    return ::_wcsicmp(left, right) == 0;
}

std::string PathOf(DWORD id)
{
    const win32::KernelHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    std::array<wchar_t, 1024> path{};
    DWORD length = static_cast<DWORD>(path.size());
    return process && ::QueryFullProcessImageNameW(process.Get(), 0, path.data(), &length)
             ? console::Utf8({path.data(), length})
             : std::string();
}

bool IsElevated()
{
    HANDLE raw = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &raw)) {
        return false;
    }
    const win32::KernelHandle token(raw);
    TOKEN_ELEVATION elevation{};
    DWORD length = 0;
    return ::GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof elevation, &length) &&
           elevation.TokenIsElevated != 0;
}

} // namespace

void GatherPrograms(PcFacts& facts)
{
    const win32::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = snapshot && ::Process32FirstW(snapshot.Get(), &entry); more;
         more = ::Process32NextW(snapshot.Get(), &entry))
    {
        const DWORD id = entry.th32ProcessID;
        if (SameName(entry.szExeFile, RouterName)) {
            facts.routers.push_back({console::Utf8(entry.szExeFile), PathOf(id), id});
        }
        for (const wchar_t* const host : HostNames) {
            if (SameName(entry.szExeFile, host)) {
                facts.hosts.push_back({console::Utf8(entry.szExeFile), PathOf(id), id});
            }
        }
    }
    facts.mutexHeld = static_cast<bool>(win32::KernelHandle(::OpenMutexW(SYNCHRONIZE, FALSE, Mutex)));
    facts.elevated = IsElevated();
}

} // namespace routerlog
