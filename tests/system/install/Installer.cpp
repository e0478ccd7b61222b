#include "tests/system/install/Installer.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "win32/Handle.h"
#include "win32/RegistryKey.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

// An installation on a loaded machine; spent only by a failure.
constexpr std::chrono::minutes InstallPatience{3};

std::filesystem::path PackageIn(const wchar_t* folder)
{
    const wchar_t* packages = ::_wgetenv(L"MORVANE_PACKAGES");
    if (packages == nullptr) {
        throw std::runtime_error("MORVANE_PACKAGES does not name the folder of the packages");
    }
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(packages) / folder)) {
        if (entry.path().extension() == L".msi") {
            return entry.path();
        }
    }
    throw std::runtime_error("no package was made");
}

std::filesystem::path SystemFolder()
{
    std::array<wchar_t, MAX_PATH> path{};
    ::GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size()));
    return path.data();
}

void EnableBackupPrivilege()
{
    HANDLE opened = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened);
    const win32::KernelHandle token(opened);
    TOKEN_PRIVILEGES wanted{1, {{{}, SE_PRIVILEGE_ENABLED}}};
    ::LookupPrivilegeValueW(nullptr, L"SeBackupPrivilege", &wanted.Privileges[0].Luid);
    ::AdjustTokenPrivileges(token.Get(), FALSE, &wanted, 0, nullptr, nullptr);
}

/// All of the machine's Software. Wine saves a key as text, which it writes in one request of its server; reading
/// it key by key takes a hundred thousand.
RegistryListing SavedMachineSoftware()
{
    EnableBackupPrivilege();
    const support::TempFolder folder;
    const std::filesystem::path file = folder.Path() / L"software";
    const auto software = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software", KEY_READ);
    if (const LSTATUS status = ::RegSaveKeyW(software.Get(), file.c_str(), nullptr); status != ERROR_SUCCESS) {
        throw std::runtime_error("the registry cannot be saved: " + std::to_string(status));
    }
    RegistryListing listing;
    std::wifstream in(file);
    std::wstring key;
    std::wstring value;
    for (std::wstring line; std::getline(in, line);) {
        if (line.starts_with(L'[')) {
            key = L"Software\\" + line.substr(1, line.rfind(L']') - 1);
            for (std::size_t at = 0; (at = key.find(L"\\\\", at)) != std::wstring::npos; ++at) {
                key.erase(at, 1);
            }
            // The text leaves out keys that hold nothing but keys.
            for (std::size_t end = 0; end != std::wstring::npos;) {
                end = key.find(L'\\', end + 1);
                listing.insert(key.substr(0, end));
            }
        } else if (!key.empty() && !line.empty() && line[0] != L'#') {
            value += line;
            // A long value goes on in the next line.
            if (!value.ends_with(L'\\')) {
                listing.insert(key + L" = " + value);
                value.clear();
            }
        }
    }
    return listing;
}

/// The machine's PATH, a line an entry. Wine's installer leaves the semicolon of an entry that it removes.
RegistryListing ListPath()
{
    RegistryListing entries;
    std::wstringstream path(MachinePath());
    for (std::wstring entry; std::getline(path, entry, L';');) {
        if (!entry.empty()) {
            entries.insert(L"PATH: " + entry);
        }
    }
    return entries;
}

void ListFiles(const std::filesystem::path& folder, std::set<std::wstring>& files)
{
    using Options = std::filesystem::directory_options;
    std::error_code ignored;
    for (auto entry =
             std::filesystem::recursive_directory_iterator(folder, Options::skip_permission_denied, ignored);
         entry != std::filesystem::recursive_directory_iterator(); entry.increment(ignored))
    {
        // Wine shows the whole file system as drive Z below a user's folders.
        if (entry->is_symlink(ignored) || entry->path().filename() == L"Temp") {
            entry.disable_recursion_pending();
        } else {
            files.insert(entry->is_directory(ignored)
                             ? entry->path().wstring()
                             : entry->path().wstring() + L", " + std::to_wstring(entry->file_size(ignored)));
        }
    }
}

} // namespace

std::filesystem::path CurrentPackage()
{
    return PackageIn(L"current");
}

std::filesystem::path PreviousPackage()
{
    return PackageIn(L"previous");
}

std::filesystem::path InstalledFolder()
{
    return L"C:\\Program Files\\Morvane Port Router";
}

DWORD Msiexec(const wchar_t* action, const std::wstring& package, const std::wstring& properties)
{
    const std::wstring arguments = std::wstring(action) + L" \"" + package + L"\" /qn " + properties;
    return support::ChildProcess(SystemFolder() / L"msiexec.exe", arguments)
        .WaitForExit(InstallPatience)
        .value_or(ERROR_TIMEOUT);
}

Pc Pc::List()
{
    Pc pc;
    pc.registry = SavedMachineSoftware();
    pc.registry.merge(ListPath());
    pc.registry.merge(ListRegistry(HKEY_CURRENT_USER, L"Software\\Classes"));
    pc.registry.merge(ListRegistry(HKEY_CURRENT_USER, L"Software\\Microsoft\\Installer"));
    for (const wchar_t* folder :
         {L"C:\\Program Files", L"C:\\ProgramData", L"C:\\users", L"C:\\windows\\Installer"})
    {
        ListFiles(folder, pc.files);
    }
    return pc;
}

std::wstring AddedTo(const Pc& before, const Pc& now)
{
    return AddedTo(before.registry, now.registry) + AddedTo(before.files, now.files);
}

std::wstring Without(const std::wstring& text, const std::set<std::wstring>& known)
{
    std::wstringstream lines(text);
    std::wstring rest;
    for (std::wstring line; std::getline(lines, line);) {
        bool isKnown = false;
        for (const std::wstring& begin : known) {
            isKnown = isKnown || ::_wcsnicmp(line.c_str(), begin.c_str(), begin.size()) == 0;
        }
        if (!isKnown) {
            rest += line + L"\n";
        }
    }
    return rest;
}

std::wstring MachinePath()
{
    std::array<wchar_t, 4096> path{};
    DWORD size = sizeof path;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager\\Environment",
                   L"PATH", RRF_RT_ANY, nullptr, path.data(), &size);
    return path.data();
}

std::wstring VersionOf(const std::filesystem::path& program)
{
    DWORD ignored = 0;
    std::vector<BYTE> block(::GetFileVersionInfoSizeW(program.c_str(), &ignored));
    void* found = nullptr;
    UINT size = 0;
    if (block.empty() ||
        !::GetFileVersionInfoW(program.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", &found, &size))
    {
        return {};
    }
    const auto* version = static_cast<const VS_FIXEDFILEINFO*>(found);
    std::wstringstream text;
    text << HIWORD(version->dwFileVersionMS) << L'.' << LOWORD(version->dwFileVersionMS) << L'.'
         << HIWORD(version->dwFileVersionLS) << L'.' << LOWORD(version->dwFileVersionLS);
    return text.str();
}
