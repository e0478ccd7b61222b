// What Wine's installer does not do, read out of the package's tables: rights, programs that run, the order within
// the transaction. Also what a wrong row would only show on some PCs.
#include "tests/system/install/Installer.h"
#include "tests/system/install/PackageTables.h"

#include "win32/Windows.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>
#include <set>

namespace {

class PackageTables : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_tables = ReadTables(CurrentPackage()); }

    static const PackageTable& Table(const wchar_t* name) { return s_tables[name]; }
    static std::wstring Property(const wchar_t* name)
    {
        return Find(Table(L"Property"), L"Property", name)[L"Value"];
    }
    static int Sequence(const wchar_t* action)
    {
        const std::wstring number = Find(Table(L"InstallExecuteSequence"), L"Action", action)[L"Sequence"];
        return number.empty() ? 0 : std::stoi(number);
    }

    static std::map<std::wstring, PackageTable> s_tables;
};

std::map<std::wstring, PackageTable> PackageTables::s_tables;

/// What each well-known account is allowed, as the rights' text has it after Windows has read it.
struct Rights
{
    std::map<WELL_KNOWN_SID_TYPE, ACCESS_MASK> masks;
    bool inherited = false; // from the object around it
    bool allInherit = true; // by what lies below it
    DWORD entries = 0;
};

Rights ReadRights(const std::wstring& text)
{
    Rights rights;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor,
                                                                nullptr))
    {
        return rights;
    }
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    ::GetSecurityDescriptorControl(descriptor, &control, &revision);
    rights.inherited = (control & SE_DACL_PROTECTED) == 0;
    for (WORD i = 0; present && list != nullptr && i < list->AceCount; ++i) {
        void* entry = nullptr;
        ::GetAce(list, i, &entry);
        auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        ++rights.entries;
        rights.allInherit = rights.allInherit && (allowed->Header.AceFlags & CONTAINER_INHERIT_ACE) != 0;
        for (const auto account : {WinLocalSystemSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid}) {
            if (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                ::IsWellKnownSid(&allowed->SidStart, account))
            {
                rights.masks[account] = allowed->Mask;
            }
        }
    }
    ::LocalFree(descriptor);
    return rights;
}

TEST_F(PackageTables, GiveUsersWriteAccessToTwoPlacesOnly)
{
    const PackageTable& table = Table(L"MsiLockPermissionsEx");
    ASSERT_EQ(table.size(), 2U);
    EXPECT_TRUE(Table(L"LockPermissions").empty());
    std::set<std::wstring> places;
    for (const PackageRow& row : table) {
        places.insert(row.at(L"Table") + L" " + row.at(L"LockObject"));
        EXPECT_EQ(row.at(L"Condition"), L"");
    }
    EXPECT_EQ(places, (std::set<std::wstring>{L"CreateFolder LogFolder", L"Registry SettingsKey"}));
    const PackageRow key = Find(Table(L"Registry"), L"Registry", L"SettingsKey");
    EXPECT_EQ(key.at(L"Root"), L"2");
    EXPECT_EQ(key.at(L"Key"), L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter");
    EXPECT_EQ(Find(Table(L"Directory"), L"Directory", L"LogFolder").at(L"DefaultDir"), L"Log");
    EXPECT_EQ(Find(Table(L"Directory"), L"Directory", L"LogFolder").at(L"Directory_Parent"), L"RouterFolder");
}

/// That a locked place inherits nothing, gives Windows and administrators everything and users `forUsers`.
void ExpectRights(const PackageRow& place, ACCESS_MASK everything, ACCESS_MASK forUsers)
{
    const Rights rights = ReadRights(place.at(L"SDDLText"));
    EXPECT_EQ(rights.entries, 3U);
    EXPECT_FALSE(rights.inherited);
    EXPECT_TRUE(rights.allInherit);
    EXPECT_EQ(rights.masks.at(WinLocalSystemSid), everything);
    EXPECT_EQ(rights.masks.at(WinBuiltinAdministratorsSid), everything);
    EXPECT_EQ(rights.masks.at(WinBuiltinUsersSid), forUsers);
}

TEST_F(PackageTables, LetUsersReadAndWriteTheSettingsKey)
{
    ExpectRights(Find(Table(L"MsiLockPermissionsEx"), L"LockObject", L"SettingsKey"), KEY_ALL_ACCESS,
                 KEY_READ | KEY_WRITE);
}

TEST_F(PackageTables, LetUsersChangeWhatIsInTheLogFolder)
{
    ExpectRights(Find(Table(L"MsiLockPermissionsEx"), L"LockObject", L"LogFolder"), FILE_ALL_ACCESS,
                 FILE_GENERIC_READ | FILE_GENERIC_WRITE | FILE_GENERIC_EXECUTE | DELETE);
}

TEST_F(PackageTables, AskNothingAndNeverRestartThePc)
{
    EXPECT_EQ(Property(L"ALLUSERS"), L"1");
    EXPECT_EQ(Property(L"REBOOT"), L"ReallySuppress");
    EXPECT_TRUE(Table(L"Dialog").empty());
    EXPECT_EQ(Sequence(L"ScheduleReboot") + Sequence(L"ForceReboot"), 0);
}

// The Restart Manager works unless a property switches it off ("Using Windows Installer with Restart Manager").
TEST_F(PackageTables, LeaveTheRestartManagerItsDefaults)
{
    for (const wchar_t* name : {L"MSIRESTARTMANAGERCONTROL", L"MSIRMSHUTDOWN", L"MSIDISABLERMRESTART"}) {
        EXPECT_EQ(Property(name), L"") << name;
    }
    EXPECT_GT(Sequence(L"InstallValidate"), Sequence(L"CostFinalize"));
}

TEST_F(PackageTables, RunNoCodeOfTheirOwn)
{
    EXPECT_TRUE(Table(L"CustomAction").empty());
    EXPECT_TRUE(Table(L"SelfReg").empty());
    EXPECT_TRUE(Table(L"TypeLib").empty());
}

// An upgrade that fails puts the old version back only if that was removed within the same transaction.
TEST_F(PackageTables, RemoveTheOldVersionWithinTheTransaction)
{
    EXPECT_GT(Sequence(L"RemoveExistingProducts"), Sequence(L"InstallInitialize"));
    EXPECT_LT(Sequence(L"RemoveExistingProducts"), Sequence(L"ProcessComponents"));
    EXPECT_GT(Sequence(L"InstallFinalize"), Sequence(L"WriteRegistryValues"));
    EXPECT_NE(Property(L"SecureCustomProperties").find(L"OLDERVERSION"), std::wstring::npos);
    EXPECT_NE(Property(L"SecureCustomProperties").find(L"NEWERVERSION"), std::wstring::npos);
}

TEST_F(PackageTables, NameWhyADowngradeIsRefused)
{
    EXPECT_EQ(Find(Table(L"LaunchCondition"), L"Condition", L"NOT NEWERVERSION").at(L"Description"),
              L"A newer version of Morvane Port Router is installed. Remove it before you install version "
              L"[ProductVersion].");
}

// 16: kept at removal; 64: its condition counts again at a repair, which would otherwise write an empty value.
TEST_F(PackageTables, KeepSettingsAtRemovalAndRepair)
{
    const std::map<std::wstring, std::wstring> settings{
        {L"SimulateUsb", L"SIMULATEUSB"}, {L"LogLimit", L"LOGLIMIT"}, {L"RestrictPipes", L"RESTRICTPIPES"}};
    for (const auto& [component, property] : settings) {
        const PackageRow row = Find(Table(L"Component"), L"Component", component);
        EXPECT_EQ(std::stoi(row.at(L"Attributes")) & (16 | 64), 16 | 64) << property;
        EXPECT_EQ(row.at(L"Condition"), property + L" <> \"\"");
        EXPECT_NE(Property(L"SecureCustomProperties").find(property), std::wstring::npos);
    }
    for (const PackageRow& row : Table(L"Registry")) {
        EXPECT_EQ(row.at(L"Key").find(L"\\Products"), std::wstring::npos) << "switches off the built-in list";
    }
}

TEST_F(PackageTables, SendCrashDumpsOfTheRouterToTheLogFolder)
{
    const PackageRow folder = Find(Table(L"Registry"), L"Registry", L"DumpFolder");
    EXPECT_EQ(folder.at(L"Key"),
              L"SOFTWARE\\Microsoft\\Windows\\Windows Error Reporting\\LocalDumps\\MorvanePortRouter.exe");
    EXPECT_EQ(folder.at(L"Name"), L"DumpFolder");
    EXPECT_EQ(folder.at(L"Value"), L"#%[LogFolder]");
}

// Windows refuses a package whose rows name what is not there, but only on the way.
TEST_F(PackageTables, NameOnlyWhatIsThere)
{
    const auto keys = [](const wchar_t* table, const wchar_t* column) {
        std::set<std::wstring> found;
        for (const PackageRow& row : Table(table)) {
            found.insert(row.at(column));
        }
        return found;
    };
    const auto components = keys(L"Component", L"Component");
    const auto directories = keys(L"Directory", L"Directory");
    for (const wchar_t* table : {L"Registry", L"RemoveRegistry", L"File", L"CreateFolder", L"RemoveFile",
                                 L"Shortcut", L"Environment", L"FeatureComponents"})
    {
        EXPECT_FALSE(Table(table).empty()) << table;
        for (const PackageRow& row : Table(table)) {
            EXPECT_TRUE(components.contains(row.at(L"Component_"))) << table << row.at(L"Component_");
        }
    }
    EXPECT_EQ(keys(L"FeatureComponents", L"Component_"), components);
    EXPECT_EQ(keys(L"Component", L"ComponentId").size(), components.size());
    const auto files = keys(L"File", L"File");
    const auto values = keys(L"Registry", L"Registry");
    for (const PackageRow& row : Table(L"Component")) {
        EXPECT_TRUE(directories.contains(row.at(L"Directory_"))) << row.at(L"Component");
        const std::wstring& path = row.at(L"KeyPath");
        EXPECT_TRUE(path.empty() || files.contains(path) || values.contains(path)) << path;
        // 256: a component of 64 bits; anything else would end in the places for 32-bit programs.
        const bool is64 = (std::stoi(row.at(L"Attributes")) & 256) != 0;
        EXPECT_EQ(is64, row.at(L"Component") != L"Registration32") << row.at(L"Component");
    }
}

} // namespace
