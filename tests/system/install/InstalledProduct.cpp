#include "tests/system/install/InstalledProduct.h"

#include "tests/system/install/PackageTables.h"
#include "win32/RegistryKey.h"

namespace {

constexpr wchar_t EnvironmentKey[] = L"System\\CurrentControlSet\\Control\\Session Manager\\Environment";

} // namespace

InstalledProduct::~InstalledProduct()
{
    if (m_installed) {
        Remove(*m_installed);
    }
    std::error_code ignored;
    std::filesystem::remove_all(InstalledFolder(), ignored);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, SettingsRoot.c_str());
}

DWORD InstalledProduct::Install(const std::filesystem::path& package, const std::wstring& properties)
{
    const DWORD code = Msiexec(L"/i", package, properties);
    if (code == 0) {
        m_installed = package;
    }
    return code;
}

DWORD InstalledProduct::Remove(const std::filesystem::path& package)
{
    m_installed.reset();
    return Msiexec(L"/x", package);
}

std::filesystem::path Program(const wchar_t* name)
{
    return InstalledFolder() / name;
}

std::optional<std::uint32_t> Setting(const wchar_t* name)
{
    const auto key =
        win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, (SettingsKey + L"\\DeviceOptions").c_str(), KEY_READ);
    return key ? key.ReadDword(name) : std::nullopt;
}

std::wstring ProductCode(const std::filesystem::path& package)
{
    return Find(ReadTables(package)[L"Property"], L"Property", L"ProductCode")[L"Value"];
}

std::wstring MachinePath()
{
    wchar_t path[4096] = {};
    DWORD size = sizeof path;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, EnvironmentKey, L"PATH", RRF_RT_ANY, nullptr, path, &size);
    return path;
}

std::wstring PathWithout(const RegistryListing& listing)
{
    const std::wstring begin = EnvironmentKey + std::wstring(L" = PATH,");
    for (const std::wstring& line : listing) {
        if (line.starts_with(begin)) {
            return line + L"\n";
        }
    }
    return {};
}
