#include "host/Registration.h"

#include "host/ComPointer.h"
#include "tests/support/TestSupport.h"
#include "win32/ModulePath.h"
#include "win32/RegistryKey.h"

#include <MorvanePortRouter.h>
#include <gtest/gtest.h>
#include <objbase.h>
#include <oleauto.h>
#include <functional>
#include <vector>

namespace {

constexpr wchar_t Class[] = L"{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}";
constexpr wchar_t Application[] = L"{2D9F6A71-C04E-4B38-A5E2-91F7B3C8D605}";
constexpr wchar_t Library[] = L"{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}";
constexpr wchar_t Interface[] = L"{4E8B2C17-9A35-4D6F-B0C2-7F1E5A93D468}";
constexpr wchar_t ProgId[] = L"MorvanePortRouter.MorvaneUSBRouter.1";
constexpr wchar_t VersionIndependentProgId[] = L"MorvanePortRouter.MorvaneUSBRouter";

/// In the user's hive, which is a private one here. The machine's registration is tested from outside.
class UserRegistration : public testing::Test
{
protected:
    std::optional<std::wstring> Value(const std::wstring& path, const wchar_t* name = nullptr) const
    {
        const auto key = win32::RegistryKey::Open(m_root.Get(), (L"Software\\Classes\\" + path).c_str(), KEY_READ);
        return key ? key.ReadString(name, 512) : std::nullopt;
    }
    bool Exists(const std::wstring& path) const
    {
        return static_cast<bool>(
            win32::RegistryKey::Open(m_root.Get(), (L"Software\\Classes\\" + path).c_str(), KEY_READ));
    }

    /// All keys below the root, by path.
    std::vector<std::wstring> Listing() const
    {
        std::vector<std::wstring> paths;
        const std::function<void(HKEY, const std::wstring&)> walk = [&](HKEY parent, const std::wstring& path) {
            const auto key = win32::RegistryKey::Open(parent, path.empty() ? nullptr : path.c_str(), KEY_READ);
            for (DWORD index = 0; const auto name = key.SubkeyName(index); ++index) {
                paths.push_back(path + L"\\" + *name);
                walk(parent, path.empty() ? *name : path + L"\\" + *name);
            }
        };
        walk(m_root.Get(), std::wstring());
        return paths;
    }

    const support::RegistryRoot m_root{HKEY_CURRENT_USER};
};

std::wstring OwnCommand()
{
    const std::wstring path = win32::ModulePath().value();
    return path.find(L' ') == std::wstring::npos ? path : L'"' + path + L'"';
}

/// Which kind of system the type library in that file was made for; none when it cannot be loaded or is another
/// one.
std::optional<SYSKIND> SystemOf(const std::wstring& file)
{
    ITypeLib* loaded = nullptr;
    if (FAILED(::LoadTypeLibEx(file.c_str(), REGKIND_NONE, &loaded))) {
        return std::nullopt;
    }
    const ComPointer<ITypeLib> library(loaded);
    TLIBATTR* attributes = nullptr;
    if (FAILED(library->GetLibAttr(&attributes))) {
        return std::nullopt;
    }
    const SYSKIND system = attributes->syskind;
    library->ReleaseTLibAttr(attributes);
    ITypeInfo* info = nullptr;
    if (FAILED(library->GetTypeInfoOfGuid(__uuidof(IMorvaneUSBRouter), &info))) {
        return std::nullopt;
    }
    info->Release();
    return system;
}

TEST_F(UserRegistration, WritesTheClass)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    const std::wstring classKey = std::wstring(L"CLSID\\") + Class;
    EXPECT_EQ(Value(ProgId), L"MorvaneUSBRouter Class");
    EXPECT_EQ(Value(std::wstring(ProgId) + L"\\CLSID"), Class);
    EXPECT_EQ(Value(VersionIndependentProgId), L"MorvaneUSBRouter Class");
    EXPECT_EQ(Value(std::wstring(VersionIndependentProgId) + L"\\CLSID"), Class);
    EXPECT_EQ(Value(std::wstring(VersionIndependentProgId) + L"\\CurVer"), ProgId);
    EXPECT_EQ(Value(classKey), L"MorvaneUSBRouter Class");
    EXPECT_EQ(Value(classKey, L"AppID"), Application);
    EXPECT_EQ(Value(classKey + L"\\ProgID"), ProgId);
    EXPECT_EQ(Value(classKey + L"\\VersionIndependentProgID"), VersionIndependentProgId);
    EXPECT_EQ(Value(classKey + L"\\TypeLib"), Library);
    EXPECT_EQ(Value(classKey + L"\\LocalServer32"), OwnCommand());
    EXPECT_EQ(Value(classKey + L"\\LocalServer32", L"ThreadingModel"), std::nullopt);
    EXPECT_TRUE(Exists(classKey + L"\\Programmable"));
}

TEST_F(UserRegistration, WritesTheApplication)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    EXPECT_EQ(Value(std::wstring(L"AppID\\") + Application), L"MorvanePortRouter");
    EXPECT_EQ(Value(L"AppID\\MorvanePortRouter.EXE", L"AppID"), Application);
}

TEST_F(UserRegistration, WritesTheTypeLibraryAndItsInterface)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    const std::wstring library = std::wstring(L"TypeLib\\") + Library + L"\\1.0";
    EXPECT_EQ(Value(library), L"MorvanePortRouter 1.0 Type Library");
    EXPECT_EQ(Value(library + L"\\0\\win64"), win32::ModulePath());
    EXPECT_EQ(Value(library + L"\\0\\win32"), win32::ModulePath().value() + L"\\2");
    EXPECT_EQ(Value(library + L"\\FLAGS"), L"0");
    EXPECT_EQ(Value(library + L"\\HELPDIR").value_or(L"") + L"\\", win32::FolderOf(win32::ModulePath().value()));
    // A private root has one view for both kinds of program.
    const std::wstring interfaceKey = std::wstring(L"Interface\\") + Interface;
    EXPECT_EQ(Value(interfaceKey), L"IMorvaneUSBRouter");
    EXPECT_EQ(Value(interfaceKey + L"\\ProxyStubClsid32"), L"{00020424-0000-0000-C000-000000000046}");
    EXPECT_EQ(Value(interfaceKey + L"\\TypeLib"), Library);
    EXPECT_EQ(Value(interfaceKey + L"\\TypeLib", L"Version"), L"1.0");
}

// A 32-bit client's marshaler reads a library made for 32-bit systems.
TEST_F(UserRegistration, TheLibraryOf32BitClientsIsThereAndMadeForThem)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    const std::wstring versions = std::wstring(L"TypeLib\\") + Library + L"\\1.0\\0\\";
    EXPECT_EQ(SystemOf(Value(versions + L"win32").value_or(L"")), SYS_WIN32);
    EXPECT_EQ(SystemOf(Value(versions + L"win64").value_or(L"")), SYS_WIN64);
}

TEST_F(UserRegistration, RemovalLeavesOnlyTheSharedKeys)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    ASSERT_EQ(UnregisterRouter(RegistrationHive::User), S_OK);
    EXPECT_EQ(Listing(),
              (std::vector<std::wstring>{L"\\Software", L"Software\\Classes", L"Software\\Classes\\AppID",
                                         L"Software\\Classes\\CLSID", L"Software\\Classes\\Interface",
                                         L"Software\\Classes\\TypeLib"}));
}

TEST_F(UserRegistration, RemovalOfNothingWorks)
{
    EXPECT_EQ(UnregisterRouter(RegistrationHive::User), S_OK);
}

TEST_F(UserRegistration, RemovalOfAnIncompleteRegistrationWorks)
{
    ASSERT_EQ(RegisterRouter(RegistrationHive::User), S_OK);
    ::RegDeleteTreeW(m_root.Get(), (std::wstring(L"Software\\Classes\\CLSID\\") + Class).c_str());
    ::RegDeleteTreeW(m_root.Get(), (std::wstring(L"Software\\Classes\\TypeLib\\") + Library).c_str());
    EXPECT_EQ(UnregisterRouter(RegistrationHive::User), S_OK);
    EXPECT_FALSE(Exists(ProgId));
    EXPECT_FALSE(Exists(std::wstring(L"AppID\\") + Application));
}

TEST_F(UserRegistration, AHiveThatCannotBeWrittenGivesItsError)
{
    ASSERT_EQ(::RegDeleteKeyW(m_root.Get(), L""), ERROR_SUCCESS);
    EXPECT_EQ(RegisterRouter(RegistrationHive::User), HRESULT_FROM_WIN32(ERROR_KEY_DELETED));
    EXPECT_EQ(UnregisterRouter(RegistrationHive::User), HRESULT_FROM_WIN32(ERROR_KEY_DELETED));
}

} // namespace
