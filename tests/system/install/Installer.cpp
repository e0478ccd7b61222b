#include "tests/system/install/Installer.h"

#include "tests/support/ChildProcess.h"

#include <array>
#include <cstdlib>
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

DWORD Msiexec(const wchar_t* action, const std::filesystem::path& package, const std::wstring& properties)
{
    const std::wstring arguments = std::wstring(action) + L" \"" + package.wstring() + L"\" /qn " + properties;
    return support::ChildProcess(SystemFolder() / L"msiexec.exe", arguments)
        .WaitForExit(InstallPatience)
        .value_or(ERROR_TIMEOUT);
}

Pc Pc::List()
{
    Pc pc;
    pc.registry = ListRegistry(HKEY_LOCAL_MACHINE, L"Software");
    pc.registry.merge(
        ListRegistry(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager\\Environment"));
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
