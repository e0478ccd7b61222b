#include "tests/system/install/InstalledProduct.h"

#include "client/RouterAutomation.h"
#include "tests/system/install/PackageTables.h"
#include "win32/RegistryKey.h"

#include <msi.h>
#include <msidefs.h>
#include <array>

namespace {

// Windows has these keys of its installer from the start; Wine creates them with the first installation and leaves
// them. The branch of 32-bit interfaces is empty in Wine alone, and an installer removes keys that it leaves
// empty.
void CreateKeysOfWindows()
{
    const std::wstring classes = L"Software\\Classes\\Installer";
    const std::wstring installer = L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer";
    for (const std::wstring& key :
         {classes + L"\\Features", classes + L"\\Products", classes + L"\\UpgradeCodes",
          installer + L"\\UpgradeCodes", installer + L"\\UserData\\S-1-5-18\\Products", InstallerComponents,
          std::wstring(L"Software\\Classes\\Wow6432Node\\Interface\\Another")})
    {
        EXPECT_TRUE(win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, key.c_str(), KEY_READ | KEY_WRITE));
    }
}

} // namespace

InstalledProduct::InstalledProduct()
{
    CreateKeysOfWindows();
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

std::set<std::wstring> KeptComponents(const std::filesystem::path& package)
{
    // Digits of a component's name in the registry: of the first three groups from the last to the first, then in
    // pairs.
    constexpr std::array<std::size_t, 32> order{8,  7,  6,  5,  4,  3,  2,  1,  13, 12, 11, 10, 18, 17, 16, 15,
                                                21, 20, 23, 22, 26, 25, 28, 27, 30, 29, 32, 31, 34, 33, 36, 35};
    std::set<std::wstring> keys;
    const PackageTable components = ReadTables(package).at(L"Component");
    for (const PackageRow& row : components) {
        if ((std::stoi(row.at(L"Attributes")) & msidbComponentAttributesPermanent) != 0) {
            std::wstring name;
            for (const std::size_t at : order) {
                name += row.at(L"ComponentId").at(at);
            }
            keys.insert(InstallerComponents + L'\\' + name);
        }
    }
    return keys;
}

bool IsInstalled(const std::filesystem::path& package)
{
    return ::MsiQueryProductStateW(ProductCode(package).c_str()) == INSTALLSTATE_DEFAULT;
}
