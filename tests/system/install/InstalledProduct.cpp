#include "tests/system/install/InstalledProduct.h"

#include "client/RouterAutomation.h"
#include "tests/system/install/PackageTables.h"
#include "win32/RegistryKey.h"

#include <msi.h>

namespace {

// Windows has these keys of its installer from the start; Wine creates them with the first installation and leaves them.
void CreateInstallerKeys()
{
    const std::wstring classes = L"Software\\Classes\\Installer";
    const std::wstring installer = L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer";
    for (const std::wstring& key :
         {classes + L"\\Features", classes + L"\\Products", classes + L"\\UpgradeCodes",
          installer + L"\\UpgradeCodes", installer + L"\\UserData\\S-1-5-18\\Products", InstallerComponents})
    {
        EXPECT_TRUE(win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, key.c_str(), KEY_READ | KEY_WRITE));
    }
}

} // namespace

InstalledProduct::InstalledProduct()
{
    CreateInstallerKeys();
    m_before = Pc::List();
}

InstalledProduct::~InstalledProduct()
{
    // A router that still runs holds its file.
    if (RouterProcess router; router.Find()) {
        EXPECT_TRUE(router.WaitForEnd(60'000));
    }
    if (const auto installed = m_installed) {
        EXPECT_EQ(Remove(*installed), 0U);
    }
    std::error_code ignored;
    std::filesystem::remove_all(InstalledFolder(), ignored);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, SettingsRoot.c_str());
}

DWORD InstalledProduct::Install(const std::filesystem::path& package, const std::wstring& properties)
{
    const DWORD code = Msiexec(L"/i", package, properties);
    if (code == ERROR_SUCCESS || code == ERROR_SUCCESS_REBOOT_REQUIRED) {
        m_installed = package;
    }
    return code;
}

DWORD InstalledProduct::Remove(const std::filesystem::path& package)
{
    m_installed.reset();
    return Msiexec(L"/x", package);
}

SimulatedInstrument::SimulatedInstrument()
    : m_served(::CreateEventW(nullptr, TRUE, FALSE, m_ready.c_str())),
      m_process(support::ProgramFolder() / L"InstrumentSimulator.exe", L"--quiet --ready-event " + m_ready)
{
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

bool IsInstalled(const std::filesystem::path& package)
{
    return ::MsiQueryProductStateW(ProductCode(package).c_str()) == INSTALLSTATE_DEFAULT;
}
