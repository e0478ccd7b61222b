#include "tests/windows/Row.h"

#include "tests/support/ChildProcess.h"
#include "win32/Handle.h"
#include "win32/RegistryKey.h"
#include "win32/TimerResolution.h"

#include <winternl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cwctype>
#include <map>
#include <set>
#include <vector>

namespace windowscheck {

bool IsElevated()
{
    HANDLE handle = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &handle);
    const win32::KernelHandle token(handle);
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    ::GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof elevation, &size);
    return elevation.TokenIsElevated != 0;
}

namespace {

Found MachineKeyIsReadOnly()
{
    if (IsElevated()) {
        return Skipped("this user is an administrator here");
    }
    HKEY key = nullptr;
    const LSTATUS read = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_READ, &key);
    ::RegCloseKey(key);
    const LSTATUS write = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software", 0, KEY_CREATE_SUB_KEY, &key);
    if (write == ERROR_SUCCESS) {
        ::RegCloseKey(key);
    }
    return HoldsIf(read == ERROR_SUCCESS && write == ERROR_ACCESS_DENIED,
                   "reading gave " + std::to_string(read) + ", writing " + std::to_string(write));
}

Found ProgramFilesIsReadOnly()
{
    if (IsElevated()) {
        return Skipped("this user is an administrator here");
    }
    std::array<wchar_t, MAX_PATH> folder{};
    ::GetEnvironmentVariableW(L"ProgramFiles", folder.data(), folder.size());
    // Opened for adding files, so nothing is added.
    const win32::FileHandle opened(::CreateFileW(folder.data(), FILE_ADD_FILE,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return HoldsIf(!opened && ::GetLastError() == ERROR_ACCESS_DENIED, "files can be added to it");
}

Found OneMillisecond()
{
    win32::TimerResolution resolution;
    resolution.Raise();
    std::vector<double> times;
    for (int sleep = 0; sleep < 51; ++sleep) {
        const auto start = std::chrono::steady_clock::now();
        ::Sleep(1); // what is measured
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    resolution.Restore();
    std::ranges::sort(times);
    const double median = times[times.size() / 2];
    return HoldsIf(median < 5, "Sleep(1) takes " + std::to_string(median) + " ms");
}

/// The path that the kernel has for a key.
std::wstring KernelPath(const wchar_t* name, REGSAM view)
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, name, 0, KEY_READ | view, &key) != ERROR_SUCCESS) {
        return {};
    }
    using Query = NTSTATUS(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQueryKey")));
    constexpr int KeyNameInformation = 3;
    struct
    {
        ULONG bytes;
        std::array<wchar_t, 500> text;
    } answer{};
    ULONG length = 0;
    query(key, KeyNameInformation, &answer, sizeof answer, &length);
    ::RegCloseKey(key);
    std::wstring path(answer.text.data(), answer.bytes / sizeof(wchar_t));
    std::ranges::transform(path, path.begin(),
                           [](wchar_t letter) { return static_cast<wchar_t>(std::towlower(letter)); });
    return path;
}

bool IsShared(const wchar_t* name)
{
    return KernelPath(name, KEY_WOW64_32KEY) == KernelPath(name, KEY_WOW64_64KEY);
}

Found ViewsOf32BitClients()
{
    std::string wrong;
    for (const wchar_t* const name : {L"Software\\Classes\\CLSID", L"Software\\Classes\\Interface"}) {
        wrong += IsShared(name) ? "CLSID or Interface is the same key in both views; " : "";
    }
    wrong += IsShared(L"Software\\Classes\\TypeLib") ? "" : "TypeLib differs between the views; ";
    return HoldsIf(wrong.empty(), wrong);
}

/// Libraries that a program imports, in lower case.
std::set<std::string> ImportsOf(const std::filesystem::path& program)
{
    std::set<std::string> names;
    auto* const base =
        reinterpret_cast<std::uint8_t*>(::LoadLibraryExW(program.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES));
    if (base == nullptr) {
        return names;
    }
    const auto* const headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const DWORD table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* entry = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + table); entry->Name != 0; ++entry) {
        std::string name(reinterpret_cast<const char*>(base + entry->Name));
        std::ranges::transform(name, name.begin(),
                               [](char letter) { return static_cast<char>(std::tolower(letter)); });
        names.insert(std::move(name));
    }
    ::FreeLibrary(reinterpret_cast<HMODULE>(base));
    return names;
}

std::set<std::string> KnownLibraries()
{
    std::set<std::string> names;
    HKEY key = nullptr;
    ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\KnownDLLs", 0,
                    KEY_READ, &key);
    for (DWORD index = 0;; ++index) {
        std::array<char, 100> name{};
        std::array<char, 300> value{};
        DWORD nameLength = name.size();
        DWORD valueLength = value.size() - 1;
        if (::RegEnumValueA(key, index, name.data(), &nameLength, nullptr, nullptr,
                            reinterpret_cast<BYTE*>(value.data()), &valueLength) != ERROR_SUCCESS)
        {
            break;
        }
        std::string library(value.data());
        std::ranges::transform(library, library.begin(),
                               [](char letter) { return static_cast<char>(std::tolower(letter)); });
        names.insert(std::move(library));
    }
    ::RegCloseKey(key);
    return names;
}

Found LibrariesFromSystem32()
{
    const auto imports = ImportsOf(support::ProgramFolder() / L"MorvanePortRouter.exe");
    if (imports.empty()) {
        return Skipped("MorvanePortRouter.exe is not beside this program");
    }
    const auto known = KnownLibraries();
    std::string others;
    for (const std::string& name : imports) {
        // The manifest binds comctl32.dll to a folder of Windows; what ntdll.dll brings is always there.
        if (!known.contains(name) && name != "comctl32.dll" && name != "ntdll.dll") {
            others += name + ' ';
        }
    }
    return HoldsIf(others.empty(), "these are no known libraries: " + others);
}

} // namespace

std::vector<Row> MachineRows()
{
    return {
        {"A standard user may read the machine's settings and not write them.",
         "Registry Key Security and Access Rights", MachineKeyIsReadOnly},
        {"A standard user may not add files below Program Files.", "File Security and Access Rights",
         ProgramFilesIsReadOnly},
        {"A process without visible windows gets a timer of one millisecond when it asks for it.",
         "timeBeginPeriod function", OneMillisecond},
        {"32-bit programs have a view of their own of CLSID and Interface, and share TypeLib.",
         "Registry Keys Affected by WOW64", ViewsOf32BitClients},
        {"All libraries that the router imports come from Windows' own folder, whatever lies beside it.",
         "Dynamic-link library search order", LibrariesFromSystem32},
    };
}

} // namespace windowscheck
