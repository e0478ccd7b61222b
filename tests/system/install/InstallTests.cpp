// The installer under Wine: what it leaves, what works then, and what is gone after its removal.
#include "tests/support/ChildProcess.h"
#include "tests/support/TestSupport.h"
#include "tests/system/install/InstalledProduct.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <fstream>

namespace {

class Installation : public InstalledProduct
{};

/// What an installation writes besides the registration.
const std::set<std::wstring> OwnKeys{
    L"Software\\Classes\\Installer",
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer",
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
    L"Software\\Microsoft\\Windows\\Windows Error Reporting",
    L"Software\\Morvane Biosystems",
    L"PATH: C:\\Program Files\\Morvane Port Router",
};

TEST_F(Installation, LeavesInTheRegistryWhatRegServerLeaves)
{
    const RegistryListing& before = Before().registry;
    ASSERT_EQ(Install(CurrentPackage()), 0U);
    const RegistryListing after = Pc::List().registry;
    const std::wstring installed = AddedTo(before, after);
    EXPECT_EQ(AddedTo(after, before), L"");

    // The same program, registered by itself at the same place.
    const support::TempFolder kept;
    std::filesystem::copy_file(Program(L"MorvanePortRouter.exe"), kept.Path() / L"router");
    ASSERT_EQ(Remove(CurrentPackage()), 0U);
    const RegistryListing removed = Pc::List().registry;
    std::filesystem::create_directories(InstalledFolder());
    std::filesystem::copy_file(kept.Path() / L"router", Program(L"MorvanePortRouter.exe"));
    ASSERT_EQ(support::ChildProcess(Program(L"MorvanePortRouter.exe"), L"/RegServer").WaitForExit(), 0U);
    const std::wstring registered = AddedTo(removed, Pc::List().registry);
    EXPECT_EQ(support::ChildProcess(Program(L"MorvanePortRouter.exe"), L"/UnregServer").WaitForExit(), 0U);

    EXPECT_NE(registered, L"");
    EXPECT_EQ(Without(installed, OwnKeys), registered);
}

TEST_F(Installation, IsListedAmongTheAppsWithAllThatIsShownThere)
{
    ASSERT_EQ(Install(CurrentPackage()), 0U);
    const std::wstring path =
        L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + ProductCode(CurrentPackage());
    const auto key = win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ);
    ASSERT_TRUE(key);
    EXPECT_EQ(key.ReadString(L"DisplayName", 260), L"Morvane Port Router");
    EXPECT_EQ(key.ReadString(L"DisplayVersion", 260).value_or(L"") + L".0",
              VersionOf(Program(L"MorvanePortRouter.exe")));
    EXPECT_EQ(key.ReadString(L"Publisher", 260), L"Morvane Biosystems");
    EXPECT_EQ(key.ReadString(L"HelpLink", 260), L"C:\\Program Files\\Morvane Port Router\\Documents\\");
    EXPECT_TRUE(std::filesystem::exists(InstalledFolder() / L"Documents" / L"index.html"));
}

/// Starts a router with the installed programs, by a script and by RouterProbe, with 1,000 packets.
void UseInstalledRouter()
{
    const auto ready = support::UniqueName(L"Ready");
    const win32::KernelHandle served(::CreateEventW(nullptr, TRUE, FALSE, ready.c_str()));
    const support::ChildProcess instrument(Program(L"InstrumentSimulator.exe"), L"--quiet --ready-event " + ready);
    ASSERT_TRUE(support::WaitFor(served.Get()));

    const support::TempFolder folder;
    const std::filesystem::path script = folder.Path() / L"client.vbs";
    std::ofstream(script) << "Set router = CreateObject(\"MorvanePortRouter.MorvaneUSBRouter\")\r\n"
                             "router.Register 7, 1, 1024, 1024, \"Script.port\"\r\n"
                             "Set router = Nothing\r\n"
                             "WScript.Echo \"released\"\r\n";
    const support::ChildProcess host(L"C:\\windows\\system32\\cscript.exe",
                                     L"//nologo \"" + script.wstring() + L'"');
    EXPECT_EQ(host.WaitForExit(std::chrono::minutes(1)), 0U);
    EXPECT_EQ(host.Output(), "released\r\n");

    // RouterProbe by its name alone, as at a prompt that was opened after the installation.
    wchar_t found[MAX_PATH] = {};
    ASSERT_NE(::SearchPathW(MachinePath().c_str(), L"RouterProbe", L".exe", MAX_PATH, found, nullptr), 0U);
    ASSERT_EQ(std::filesystem::path(found), Program(L"RouterProbe.exe"));
    const support::ChildProcess probe(found, L"measure --port 3,1 --count 1000 --open-timeout 60 --wait-exit 30");
    EXPECT_EQ(probe.WaitForExit(std::chrono::minutes(2)), 0U);
    EXPECT_NE(probe.Output().find("1000 answered"), std::string::npos) << probe.Output();
}

TEST_F(Installation, ServesScriptsAndRouterProbeAtTheInstalledPlace)
{
    ASSERT_EQ(Install(CurrentPackage(), L"SIMULATEUSB=1"), 0U);
    // Start-up traces into the log file, which lies beside the program.
    win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, (SettingsKey + L"\\DeviceOptions\\-1").c_str(),
                               KEY_READ | KEY_WRITE)
        .WriteDword(L"DebugMask", 0x0020'0000);
    UseInstalledRouter();
    EXPECT_TRUE(std::filesystem::exists(InstalledFolder() / L"Log" / L"MorvanePortRouter.log"));
}

TEST_F(Installation, IsSoundToTheInstalledDoctor)
{
    ASSERT_EQ(Install(CurrentPackage(), L"SIMULATEUSB=1"), 0U);
    const SimulatedInstrument instrument;
    ASSERT_TRUE(instrument.IsServed());
    const support::ChildProcess doctor(Program(L"RouterLog.exe"), L"doctor --activate");
    EXPECT_EQ(doctor.WaitForExit(std::chrono::minutes(2)), 0U) << doctor.Output();
}

TEST_F(Installation, WritesASettingOnlyWhenItIsGiven)
{
    ASSERT_EQ(Install(CurrentPackage(), L"LOGLIMIT=77"), 0U);
    EXPECT_EQ(Setting(L"LogFileLimt(MB)"), 77U);
    EXPECT_EQ(Setting(L"SimulateUSB"), std::nullopt);
    EXPECT_EQ(Setting(L"RestrictPipes"), std::nullopt);
    ASSERT_EQ(Remove(CurrentPackage()), 0U);
    EXPECT_EQ(Setting(L"LogFileLimt(MB)"), 77U);

    ASSERT_EQ(Install(CurrentPackage(), L"SIMULATEUSB=0 RESTRICTPIPES=1"), 0U);
    EXPECT_EQ(Setting(L"LogFileLimt(MB)"), 77U);
    EXPECT_EQ(Setting(L"SimulateUSB"), 0U);
    EXPECT_EQ(Setting(L"RestrictPipes"), 1U);
    EXPECT_FALSE(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, (SettingsKey + L"\\Products").c_str(), KEY_READ));
}

TEST_F(Installation, IsRefusedWithAWrongPropertyAndChangesNothing)
{
    for (const wchar_t* wrong : {L"SIMULATEUSB=2", L"LOGLIMIT=0", L"LOGLIMIT=4096", L"RESTRICTPIPES=yes"}) {
        EXPECT_EQ(Install(CurrentPackage(), wrong), static_cast<DWORD>(ERROR_INSTALL_FAILURE)) << wrong;
    }
    const Pc after = Pc::List();
    EXPECT_EQ(AddedTo(Before(), after), L"");
    EXPECT_EQ(AddedTo(after, Before()), L"");
}

TEST_F(Installation, RemovalLeavesSettingsLogsAndImagesAlone)
{
    const Pc& before = Before();
    ASSERT_EQ(Install(CurrentPackage(), L"SIMULATEUSB=1"), 0U);
    std::ofstream(InstalledFolder() / L"Log" / L"MorvanePortRouter.log") << "log";
    std::ofstream(InstalledFolder() / L"Firmware" / L"Firmware_256.Out") << "image";
    ASSERT_EQ(Remove(CurrentPackage()), 0U);
    const Pc after = Pc::List();

    const std::wstring files = AddedTo(before.files, after.files);
    EXPECT_EQ(files, L"C:\\Program Files\\Morvane Port Router\n"
                     L"C:\\Program Files\\Morvane Port Router\\Firmware\n"
                     L"C:\\Program Files\\Morvane Port Router\\Firmware\\Firmware_256.Out, 5\n"
                     L"C:\\Program Files\\Morvane Port Router\\Log\n"
                     L"C:\\Program Files\\Morvane Port Router\\Log\\MorvanePortRouter.log, 3\n");
    std::set<std::wstring> kept = KeptComponents(CurrentPackage());
    EXPECT_EQ(kept.size(), 3U);
    kept.insert(SettingsRoot);
    EXPECT_EQ(Without(AddedTo(before.registry, after.registry), kept), L"");
    EXPECT_EQ(Setting(L"SimulateUSB"), 1U);
    EXPECT_EQ(AddedTo(after, before), L"");
}

// MORVANE_INSTALL_CYCLES: how many; long runs do twenty.
TEST_F(Installation, CyclesOfInstallationAndRemovalLeaveNothing)
{
    const char* wanted = std::getenv("MORVANE_INSTALL_CYCLES");
    const int cycles = wanted != nullptr ? std::atoi(wanted) : 3;
    const Pc& before = Before();
    const std::set<std::wstring> kept = KeptComponents(CurrentPackage());
    for (int cycle = 0; cycle < cycles; ++cycle) {
        ASSERT_EQ(Install(CurrentPackage()), 0U) << "cycle " << cycle;
        ASSERT_TRUE(std::filesystem::exists(Program(L"RouterProbe.exe")));
        ASSERT_EQ(Remove(CurrentPackage()), 0U) << "cycle " << cycle;
        const Pc after = Pc::List();
        ASSERT_EQ(Without(AddedTo(before, after), kept), L"") << "cycle " << cycle;
        ASSERT_EQ(AddedTo(after, before), L"") << "cycle " << cycle;
    }
}

} // namespace
