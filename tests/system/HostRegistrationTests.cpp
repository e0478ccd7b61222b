// Registration switches of the built program, compared with full listings of the registry.
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/RegistryListing.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

#include <array>

namespace {

constexpr wchar_t MachineClasses[] = L"Software\\Classes";
constexpr wchar_t ClassKey[] = L"Software\\Classes\\CLSID\\{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}";
constexpr wchar_t ServerKey[] = L"Software\\Classes\\CLSID\\{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}\\LocalServer32";
constexpr wchar_t LibraryKey[] = L"Software\\Classes\\TypeLib\\{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}";
constexpr wchar_t InterfaceKey[] = L"Software\\Classes\\Interface\\{4E8B2C17-9A35-4D6F-B0C2-7F1E5A93D468}";
constexpr wchar_t ProgIdKey[] = L"Software\\Classes\\MorvanePortRouter.MorvaneUSBRouter.1";
constexpr wchar_t AppIdKey[] = L"Software\\Classes\\AppID\\{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}";
constexpr wchar_t AppNameKey[] = L"Software\\Classes\\AppID\\MorvanePortRouter.EXE";

constexpr REGSAM Views[] = {KEY_WOW64_64KEY, KEY_WOW64_32KEY};

bool Exists(HKEY root, const wchar_t* path, REGSAM view = KEY_WOW64_64KEY)
{
    return static_cast<bool>(win32::RegistryKey::Open(root, path, KEY_READ | view));
}

std::optional<std::wstring> Value(HKEY root, const std::wstring& path, const wchar_t* name = nullptr,
                                  REGSAM view = KEY_WOW64_64KEY)
{
    const auto key = win32::RegistryKey::Open(root, path.c_str(), KEY_READ | view);
    return key ? key.ReadString(name, 1024) : std::nullopt;
}

class HostRegistration : public testing::Test
{
protected:
    HostRegistration() { session.Run(L"/UnregServer"); }

    RouterSession session{RouterSession::Transport::Simulation};
};

TEST_F(HostRegistration, RegServerWritesApplicationClassAndTypeLibrary)
{
    ASSERT_EQ(session.Run(L"-RegServer"), 0U);
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, AppIdKey), L"MorvanePortRouter");
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, AppNameKey, L"AppID"), L"{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}");
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, ProgIdKey), L"MorvaneUSBRouter Class");
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, ClassKey), L"MorvaneUSBRouter Class");
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, ServerKey), session.Program().wstring());
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, LibraryKey + std::wstring(L"\\1.0")),
              L"MorvanePortRouter 1.0 Type Library");
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, LibraryKey + std::wstring(L"\\1.0\\0\\win64")),
              session.Program().wstring());
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, LibraryKey + std::wstring(L"\\1.0\\0\\win32")),
              session.Program().wstring() + L"\\2");
    for (const REGSAM view : Views) {
        EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, InterfaceKey, nullptr, view), L"IMorvaneUSBRouter") << view;
        EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, InterfaceKey + std::wstring(L"\\ProxyStubClsid32"), nullptr, view),
                  L"{00020424-0000-0000-C000-000000000046}");
        EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, InterfaceKey + std::wstring(L"\\TypeLib"), nullptr, view),
                  L"{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}");
    }
}

TEST_F(HostRegistration, AfterUnregServerTheRegistryIsAsBeforeInBothViews)
{
    const auto listings = [] {
        return std::array{ListRegistry(HKEY_LOCAL_MACHINE, MachineClasses, KEY_WOW64_64KEY),
                          ListRegistry(HKEY_LOCAL_MACHINE, MachineClasses, KEY_WOW64_32KEY)};
    };
    const auto before = listings();
    ASSERT_EQ(session.Run(L"/regserver"), 0U);
    const auto registered = listings();
    ASSERT_EQ(session.Run(L"-UNREGSERVER"), 0U);
    const auto after = listings();
    for (std::size_t view = 0; view < before.size(); ++view) {
        EXPECT_GT(registered[view].size(), before[view].size());
        EXPECT_EQ(AddedTo(before[view], after[view]), L"");
        EXPECT_EQ(AddedTo(after[view], before[view]), L"");
    }
}

TEST_F(HostRegistration, ForOneUserNothingOfTheMachineIsTouched)
{
    const RegistryListing machine = ListRegistry(HKEY_LOCAL_MACHINE, MachineClasses);
    ASSERT_EQ(session.Run(L"-RegServerPerUser"), 0U);
    EXPECT_EQ(ListRegistry(HKEY_LOCAL_MACHINE, MachineClasses), machine);
    EXPECT_EQ(Value(HKEY_CURRENT_USER, ServerKey), session.Program().wstring());
    EXPECT_EQ(Value(HKEY_CURRENT_USER, LibraryKey + std::wstring(L"\\1.0\\0\\win64")),
              session.Program().wstring());
    EXPECT_EQ(Value(HKEY_CURRENT_USER, LibraryKey + std::wstring(L"\\1.0\\0\\win32")),
              session.Program().wstring() + L"\\2");
    for (const REGSAM view : Views) {
        EXPECT_EQ(Value(HKEY_CURRENT_USER, InterfaceKey, nullptr, view), L"IMorvaneUSBRouter") << view;
    }
    EXPECT_EQ(Value(HKEY_CURRENT_USER, AppIdKey), L"MorvanePortRouter");
    ASSERT_EQ(session.Run(L"-UnregServerPerUser"), 0U);
    EXPECT_EQ(ListRegistry(HKEY_LOCAL_MACHINE, MachineClasses), machine);
    for (const wchar_t* key : {ClassKey, LibraryKey, InterfaceKey, ProgIdKey, AppIdKey, AppNameKey}) {
        EXPECT_FALSE(Exists(HKEY_CURRENT_USER, key)) << key;
        EXPECT_FALSE(Exists(HKEY_CURRENT_USER, key, KEY_WOW64_32KEY)) << key;
    }
}

TEST_F(HostRegistration, RemovingWhatIsNotRegisteredWorks)
{
    EXPECT_EQ(session.Run(L"/UnregServer"), 0U);
    EXPECT_EQ(session.Run(L"/UnregServerPerUser"), 0U);
}

TEST_F(HostRegistration, RegisteringTwiceWorks)
{
    EXPECT_EQ(session.Run(L"/RegServer"), 0U);
    EXPECT_EQ(session.Run(L"/RegServer"), 0U);
}

TEST_F(HostRegistration, RemovalOfAnIncompleteRegistrationLeavesNothing)
{
    ASSERT_EQ(session.Run(L"/RegServer"), 0U);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ServerKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, LibraryKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, AppNameKey);
    EXPECT_EQ(session.Run(L"/UnregServer"), 0U);
    for (const wchar_t* key : {ClassKey, LibraryKey, InterfaceKey, ProgIdKey, AppIdKey, AppNameKey}) {
        EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, key)) << key;
    }
}

// Below a volatile key Windows makes no lasting ones, so the class script fails in its middle.
TEST_F(HostRegistration, AFailingStepIsTheExitCodeAndItsRestCanBeRemoved)
{
    HKEY made = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, ProgIdKey, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                                nullptr, &made, nullptr),
              ERROR_SUCCESS);
    ::RegCloseKey(made);
    EXPECT_EQ(session.Run(L"/RegServer"), static_cast<DWORD>(HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE)));
    EXPECT_TRUE(Exists(HKEY_LOCAL_MACHINE, AppIdKey));
    EXPECT_EQ(session.Run(L"/UnregServer"), 0U);
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, AppIdKey));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, ProgIdKey));
}

TEST_F(HostRegistration, OtherWordsBeforeTheSwitchAreSkipped)
{
    EXPECT_EQ(session.Run(L"please -now /RegServer -UnregServer"), 0U);
    EXPECT_TRUE(Exists(HKEY_LOCAL_MACHINE, ClassKey));
}

TEST_F(HostRegistration, AProgramPathWithABlankIsRegisteredInQuotesAndActivated)
{
    const support::TempFolder temp;
    const std::filesystem::path folder = temp.Path() / L"with a blank";
    std::filesystem::create_directories(folder);
    const std::filesystem::path program = folder / L"MorvanePortRouter.exe";
    std::filesystem::copy_file(session.Program(), program);
    ASSERT_EQ(support::ChildProcess(program, L"/RegServer").WaitForExit(), 0U);
    EXPECT_EQ(Value(HKEY_LOCAL_MACHINE, ServerKey), L'"' + program.wstring() + L'"');
    EXPECT_TRUE(session.Activate());
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0U);
}

} // namespace
