// The installer over something that is there already: an older version, a newer one, a damaged one, and copies
// that were registered by hand.
#include "tests/support/ChildProcess.h"
#include "tests/support/TestSupport.h"
#include "tests/system/install/InstalledProduct.h"
#include "win32/RegistryKey.h"

#include <fstream>
#include <iterator>

namespace {

constexpr wchar_t ServerKey[] = L"Software\\Classes\\CLSID\\{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}\\LocalServer32";
constexpr wchar_t InstalledServer[] = L"\"C:\\Program Files\\Morvane Port Router\\MorvanePortRouter.exe\"";

std::optional<std::wstring> Server(HKEY root)
{
    const auto key = win32::RegistryKey::Open(root, ServerKey, KEY_READ);
    return key ? key.ReadString(nullptr, 1024) : std::nullopt;
}

std::string Content(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool IsOfPrevious(const std::filesystem::path& document)
{
    return Content(document).find("As it was.") != std::string::npos;
}

class Upgrade : public InstalledProduct
{};

TEST_F(Upgrade, ReplacesTheProgramsAndKeepsTheSettings)
{
    ASSERT_EQ(Install(PreviousPackage(), L"SIMULATEUSB=1"), 0U);
    ASSERT_EQ(VersionOf(Program(L"MorvanePortRouter.exe")), L"0.9.9.0");
    ASSERT_TRUE(IsOfPrevious(InstalledFolder() / L"Documents" / L"service.html"));
    const auto options = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, (SettingsKey + L"\\DeviceOptions").c_str(),
                                                    KEY_READ | KEY_WRITE);
    options.WriteDword(L"LogFileLimt(MB)", 33);
    std::ofstream(InstalledFolder() / L"Log" / L"MorvanePortRouter.log") << "log";

    ASSERT_EQ(Install(CurrentPackage()), 0U);
    EXPECT_NE(VersionOf(Program(L"MorvanePortRouter.exe")), L"0.9.9.0");
    EXPECT_NE(VersionOf(Program(L"RouterProbe.exe")), L"0.9.9.0");
    EXPECT_FALSE(IsOfPrevious(InstalledFolder() / L"Documents" / L"service.html"));
    EXPECT_EQ(Server(HKEY_LOCAL_MACHINE), InstalledServer);
    EXPECT_EQ(Setting(L"SimulateUSB"), 1U);
    EXPECT_EQ(Setting(L"LogFileLimt(MB)"), 33U);
    EXPECT_EQ(Content(InstalledFolder() / L"Log" / L"MorvanePortRouter.log"), "log");
    EXPECT_TRUE(IsInstalled(CurrentPackage()));
    EXPECT_FALSE(IsInstalled(PreviousPackage()));
}

// Wine's installer neither shows nor logs the sentence; PackageTables.NameWhyADowngradeIsRefused reads it.
TEST_F(Upgrade, ToAnOlderVersionIsRefusedAndChangesNothing)
{
    ASSERT_EQ(Install(CurrentPackage()), 0U);
    const Pc before = Pc::List();
    EXPECT_EQ(Msiexec(L"/i", PreviousPackage()), static_cast<DWORD>(ERROR_INSTALL_FAILURE));
    const Pc after = Pc::List();
    EXPECT_EQ(AddedTo(before, after), L"");
    EXPECT_EQ(AddedTo(after, before), L"");
}

TEST_F(Upgrade, RepairBringsBackFilesAndKeysAndKeepsSettings)
{
    ASSERT_EQ(Install(CurrentPackage(), L"LOGLIMIT=20"), 0U);
    const Pc before = Pc::List();
    ASSERT_TRUE(std::filesystem::remove(Program(L"RouterProbe.exe")));
    ASSERT_TRUE(std::filesystem::remove(InstalledFolder() / L"Documents" / L"service.html"));
    ASSERT_EQ(::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ServerKey), ERROR_SUCCESS);
    // What /famus stands for; Wine's /f takes no package.
    ASSERT_EQ(Msiexec(L"/i", CurrentPackage(), L"REINSTALL=ALL REINSTALLMODE=amus"), 0U);
    const Pc after = Pc::List();
    EXPECT_EQ(AddedTo(after.files, before.files), L"");
    EXPECT_EQ(Server(HKEY_LOCAL_MACHINE), InstalledServer);
    EXPECT_EQ(Setting(L"LogFileLimt(MB)"), 20U);
    // The installer notes the folder that it has taken the package from.
    EXPECT_EQ(Without(AddedTo(after.registry, before.registry), {L"Software\\Classes\\Installer\\Products"}), L"");
}

class HandRegisteredCopy : public InstalledProduct
{
protected:
    HandRegisteredCopy()
    {
        std::filesystem::copy_file(support::ProgramFolder() / L"MorvanePortRouter.exe", m_program);
    }
    ~HandRegisteredCopy() override
    {
        Run(L"/UnregServer");
        Run(L"/UnregServerPerUser");
    }

    std::optional<DWORD> Run(const wchar_t* action) const
    {
        return support::ChildProcess(m_program, action).WaitForExit();
    }

private:
    const support::TempFolder m_folder;
    const std::filesystem::path m_program = m_folder.Path() / L"MorvanePortRouter.exe";
};

TEST_F(HandRegisteredCopy, OfTheMachineIsReplaced)
{
    ASSERT_EQ(Run(L"/RegServer"), 0U);
    ASSERT_NE(Server(HKEY_LOCAL_MACHINE), InstalledServer);
    // What an older copy had below its class and no copy writes today.
    const auto leftover = win32::RegistryKey::Create(
        HKEY_LOCAL_MACHINE, (ServerKey + std::wstring(L"\\Old")).c_str(), KEY_READ | KEY_WRITE);
    ASSERT_TRUE(leftover);
    ASSERT_EQ(Install(CurrentPackage()), 0U);
    EXPECT_EQ(Server(HKEY_LOCAL_MACHINE), InstalledServer);
    EXPECT_FALSE(
        win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, (ServerKey + std::wstring(L"\\Old")).c_str(), KEY_READ));
    ASSERT_EQ(Remove(CurrentPackage()), 0U);
    EXPECT_EQ(Server(HKEY_LOCAL_MACHINE), std::nullopt);
}

TEST_F(HandRegisteredCopy, OfTheUserWhoInstallsIsRemoved)
{
    const RegistryListing before = ListRegistry(HKEY_CURRENT_USER, L"Software\\Classes");
    ASSERT_EQ(Run(L"/RegServerPerUser"), 0U);
    ASSERT_TRUE(Server(HKEY_CURRENT_USER));
    ASSERT_EQ(Install(CurrentPackage()), 0U);
    EXPECT_EQ(Server(HKEY_CURRENT_USER), std::nullopt);
    EXPECT_EQ(Server(HKEY_LOCAL_MACHINE), InstalledServer);
    // The branches that the registration shares with others stay, without anything of it.
    RegistryListing after = ListRegistry(HKEY_CURRENT_USER, L"Software\\Classes");
    for (const wchar_t* shared : {L"AppID", L"CLSID", L"Interface", L"TypeLib", L"Wow6432Node",
                                  L"Wow6432Node\\CLSID", L"Wow6432Node\\Interface"})
    {
        after.erase(std::wstring(L"Software\\Classes\\") + shared);
    }
    EXPECT_EQ(AddedTo(before, after), L"");
}

} // namespace
