#include "host/ConfigurationStore.h"
#include "tests/support/RouterNames.h"

#include "tests/support/TestSupport.h"
#include "tests/unit/host/RecordingOutput.h"
#include "trace/Trace.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>
#include <array>
#include <list>

namespace {

using support::OptionsKey;

constexpr wchar_t ProductsKey[] = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\Products";

class Configuration : public testing::Test
{
protected:
    static win32::RegistryKey Key(const std::wstring& path)
    {
        auto key = win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, path.c_str(), KEY_ALL_ACCESS);
        EXPECT_TRUE(key);
        return key;
    }
    static win32::RegistryKey Options(const std::wstring& subkey = L"")
    {
        return Key(subkey.empty() ? std::wstring(OptionsKey) : OptionsKey + (L"\\" + subkey));
    }
    static win32::RegistryKey Product(const std::wstring& name) { return Key(ProductsKey + (L"\\" + name)); }
    static bool Exists(const std::wstring& path)
    {
        return static_cast<bool>(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ));
    }

    const support::RegistryRoot m_root;
    RecordingOutput m_output;
    TraceFrontEnd m_frontEnd{m_output};
    ConfigurationStore m_store{m_frontEnd};
};

TEST_F(Configuration, WithoutAnyKeyTheDefaultsHold)
{
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.LogFileLimit(), 10U);
    EXPECT_TRUE(m_store.AppendLogFile());
    EXPECT_FALSE(m_store.IsSimulation());
    EXPECT_TRUE(m_store.DeviceOptions().empty());
    EXPECT_EQ(m_store.CombinedMask(), 0U);
}

TEST_F(Configuration, LoadingCreatesNoKey)
{
    m_store.LoadConfiguration();
    EXPECT_FALSE(Exists(L"Software"));
}

TEST_F(Configuration, WithoutAProductsKeyTheBuiltInListHolds)
{
    m_store.LoadConfiguration();
    constexpr std::uint16_t products[] = {0x0010, 0x0100, 0x0101, 0x0200, 0x0300, 0x0400, 0x0500};
    for (const std::uint16_t product : products) {
        EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, product)) << product;
        EXPECT_EQ(m_store.GetBootloaderVersion(product), 2);
    }
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4F, 0x0102));
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4F, 0x0600));
}

TEST_F(Configuration, AnotherVendorIsNeverSupported)
{
    Product(L"A").WriteDword(L"ProductID", 0x0600);
    m_store.LoadConfiguration();
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4E, 0x0600));
    EXPECT_FALSE(m_store.IsSupportedProduct(0, 0x0100));
}

TEST_F(Configuration, AListedProductReplacesTheBuiltInList)
{
    Product(L"A").WriteDword(L"ProductID", 0x0600);
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0600));
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4F, 0x0100));
}

TEST_F(Configuration, AnEmptyProductsKeyLeavesTheBuiltInList)
{
    Key(ProductsKey);
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0100));
}

TEST_F(Configuration, AProductWithoutBootloaderVersionHasVersion2)
{
    Product(L"A").WriteDword(L"ProductID", 0x0600);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.GetBootloaderVersion(0x0600), 2);
}

TEST_F(Configuration, TheBootloaderVersionOfAProductIsReadAndOthersHave2)
{
    const auto key = Product(L"A");
    key.WriteDword(L"ProductID", 0x0600);
    key.WriteDword(L"BootloaderVersion", 7);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.GetBootloaderVersion(0x0600), 7);
    EXPECT_EQ(m_store.GetBootloaderVersion(0x0700), 2);
}

TEST_F(Configuration, ValuesOfTheWrongTypeCountAsMissing)
{
    const auto product = Product(L"A");
    product.WriteString(L"ProductID", L"1536");
    product.WriteString(L"BootloaderVersion", L"9");
    const auto options = Options();
    options.WriteString(L"LogFileLimt(MB)", L"77");
    options.WriteString(L"AppendLogFile", L"0");
    options.WriteString(L"SimulateUSB", L"1");
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0));
    EXPECT_EQ(m_store.GetBootloaderVersion(0), 2);
    EXPECT_EQ(m_store.LogFileLimit(), 10U);
    EXPECT_TRUE(m_store.AppendLogFile());
    EXPECT_FALSE(m_store.IsSimulation());
}

TEST_F(Configuration, OfTwoEntriesForOneProductTheFirstCounts)
{
    const auto first = Product(L"A");
    first.WriteDword(L"ProductID", 0x0600);
    first.WriteDword(L"BootloaderVersion", 5);
    const auto second = Product(L"B");
    second.WriteDword(L"ProductID", 0x0600);
    second.WriteDword(L"BootloaderVersion", 6);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.GetBootloaderVersion(0x0600), 5);
}

TEST_F(Configuration, AProductNumberBeyond16BitsIsCut)
{
    Product(L"A").WriteDword(L"ProductID", 0x00010600);
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0600));
}

TEST_F(Configuration, ANameBeyond99CharactersEndsTheEnumeration)
{
    Product(L"A").WriteDword(L"ProductID", 0x0600);
    Product(L"B" + std::wstring(120, L'x')).WriteDword(L"ProductID", 0x0601);
    Product(L"C").WriteDword(L"ProductID", 0x0602);
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0600));
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4F, 0x0601));
    EXPECT_FALSE(m_store.IsSupportedProduct(0x1E4F, 0x0602));
}

TEST_F(Configuration, TheModuleValuesAreRead)
{
    const auto options = Options();
    options.WriteDword(L"LogFileLimt(MB)", 3);
    options.WriteDword(L"AppendLogFile", 0);
    options.WriteDword(L"SimulateUSB", 17);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.LogFileLimit(), 3U);
    EXPECT_FALSE(m_store.AppendLogFile());
    EXPECT_TRUE(m_store.IsSimulation());
}

TEST_F(Configuration, PortsWaitWithoutLimitAndUnrestrictedByDefault)
{
    Options();
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.OptionsOfPorts().flushLimitMs, 0U);
    EXPECT_FALSE(m_store.OptionsOfPorts().restrictPipe);
}

TEST_F(Configuration, TheOptionsOfPortsAreRead)
{
    Options().WriteDword(L"FlushLimit(ms)", 1500);
    Options().WriteDword(L"RestrictPipes", 1);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.OptionsOfPorts().flushLimitMs, 1500U);
    EXPECT_TRUE(m_store.OptionsOfPorts().restrictPipe);
}

TEST_F(Configuration, DevicesAreReadWithTheirNumbersAsNames)
{
    Options(L"-1").WriteDword(L"DebugMask", 0x00010001);
    Options(L"3").WriteDword(L"DebugMask", 0x00200000);
    m_store.LoadConfiguration();
    ASSERT_EQ(m_store.DeviceOptions().size(), 2U);
    EXPECT_EQ(m_store.DeviceOptions().begin()->first, -1);
    EXPECT_EQ(m_store.DeviceOptions().at(3).GetMask(), 0x00200000U);
    EXPECT_EQ(m_store.CombinedMask(), 0x00210001U);
}

TEST_F(Configuration, ASubkeyThatIsNoNumberIsDevice0)
{
    Options(L"abc").WriteDword(L"DebugMask", 5);
    m_store.LoadConfiguration();
    ASSERT_EQ(m_store.DeviceOptions().size(), 1U);
    EXPECT_EQ(m_store.DeviceOptions().begin()->first, 0);
    EXPECT_EQ(m_store.DeviceOptions().begin()->second.DeviceNumber, 0);
}

TEST_F(Configuration, OfTwoSubkeysForOneNumberOneCounts)
{
    Options(L"007").WriteDword(L"DebugMask", 1);
    Options(L"7").WriteDword(L"DebugMask", 2);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.DeviceOptions().size(), 1U);
    EXPECT_EQ(m_store.DeviceOptions().count(7), 1U);
}

TEST_F(Configuration, LoadedMasksAreInForceForTraceCalls)
{
    Options(L"3").WriteDword(L"DebugMask", 0x00200020);
    m_store.LoadConfiguration();
    Trace(3, trace::General, "wanted");
    EXPECT_EQ(m_output.Count("wanted"), 1U);
}

TEST_F(Configuration, LoadingAgainForgetsWhatIsGone)
{
    Options(L"3").WriteDword(L"DebugMask", 0x00200020);
    m_store.LoadConfiguration();
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(OptionsKey) + L"\\3").c_str());
    m_store.LoadConfiguration();
    EXPECT_TRUE(m_store.DeviceOptions().empty());
    Trace(3, trace::General, "unwanted");
    EXPECT_EQ(m_output.Count("unwanted"), 0U);
}

TEST_F(Configuration, NamingADeviceCreatesAndSavesItAtOnce)
{
    m_store.RegisterDeviceName(L"Reader", 3);
    ASSERT_EQ(m_store.DeviceOptions().count(3), 1U);
    EXPECT_EQ(m_store.DeviceOptions().at(3).DeviceName, L"Reader");
    EXPECT_EQ(m_store.DeviceOptions().at(3).GetMask(), 0U);
    EXPECT_EQ(Options(L"3").ReadString(L"DeviceName", 256), L"Reader");
    EXPECT_EQ(Options(L"3").ReadDword(L"DebugMask"), 0U);
}

TEST_F(Configuration, ANamedDeviceKeepsItsNameAndMask)
{
    const auto key = Options(L"3");
    key.WriteString(L"DeviceName", L"Old");
    key.WriteDword(L"DebugMask", 0x10);
    m_store.LoadConfiguration();
    m_store.RegisterDeviceName(L"New", 3);
    EXPECT_EQ(m_store.DeviceOptions().at(3).DeviceName, L"Old");
    EXPECT_EQ(m_store.DeviceOptions().at(3).GetMask(), 0x10U);
    EXPECT_EQ(Options(L"3").ReadString(L"DeviceName", 256), L"Old");
}

TEST_F(Configuration, AppliedSettingsAreStoredAndSaved)
{
    m_store.Apply(25, false, true, OptionsFor(3, 0x00200020, 55));
    EXPECT_EQ(m_store.LogFileLimit(), 25U);
    EXPECT_FALSE(m_store.AppendLogFile());
    EXPECT_TRUE(m_store.IsSimulation());
    EXPECT_EQ(m_store.CombinedMask(), 0x00200020U);
    EXPECT_EQ(Options().ReadDword(L"LogFileLimt(MB)"), 25U);
    EXPECT_EQ(Options().ReadDword(L"AppendLogFile"), 0U);
    EXPECT_EQ(Options().ReadDword(L"SimulateUSB"), 1U);
    EXPECT_EQ(Options(L"3").ReadDword(L"DebugMask"), 0x00200020U);
    EXPECT_EQ(Options(L"3").ReadDword(L"MaxPacketLength"), 55U);
    Trace(3, trace::General, "wanted");
    EXPECT_EQ(m_output.Count("wanted"), 1U);
}

TEST_F(Configuration, AppliedRecordsReplaceTheFormerOnes)
{
    m_store.RegisterDeviceName(L"Reader", 3);
    m_store.Apply(10, true, false, OptionsFor(4, 1));
    EXPECT_EQ(m_store.DeviceOptions().size(), 1U);
    EXPECT_EQ(m_store.DeviceOptions().count(4), 1U);
}

TEST_F(Configuration, ApplyingNoRecordsLeavesTheRecordsAlone)
{
    m_store.RegisterDeviceName(L"Reader", 3);
    m_store.Apply(11, true, false, {});
    EXPECT_EQ(m_store.LogFileLimit(), 11U);
    EXPECT_EQ(m_store.DeviceOptions().count(3), 1U);
    EXPECT_EQ(Options().ReadDword(L"LogFileLimt(MB)"), 11U);
}

TEST_F(Configuration, WhatWasSavedIsLoadedAgain)
{
    m_store.Apply(25, false, true, OptionsFor(3, 0x00200020, 55));
    ConfigurationStore again(m_frontEnd);
    again.LoadConfiguration();
    EXPECT_EQ(again.LogFileLimit(), 25U);
    EXPECT_FALSE(again.AppendLogFile());
    EXPECT_TRUE(again.IsSimulation());
    EXPECT_EQ(again.DeviceOptions().at(3).MaxPacketLength, 55U);
}

/// Takes everybody's right to write from a key, as a standard user has none below HKEY_LOCAL_MACHINE.
class WriteProtected
{
public:
    explicit WriteProtected(const std::wstring& path)
        : m_key(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_ALL_ACCESS))
    {
        Allow(KEY_READ);
        EXPECT_FALSE(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ | KEY_WRITE));
        EXPECT_TRUE(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, path.c_str(), KEY_READ));
    }
    ~WriteProtected() { Allow(KEY_ALL_ACCESS); }
    WriteProtected(const WriteProtected&) = delete;
    WriteProtected& operator=(const WriteProtected&) = delete;

private:
    void Allow(DWORD access) const
    {
        std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone{};
        DWORD size = static_cast<DWORD>(everyone.size());
        EXPECT_TRUE(::CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size));
        std::array<DWORD, 32> list{};
        const auto acl = reinterpret_cast<ACL*>(list.data());
        EXPECT_TRUE(::InitializeAcl(acl, sizeof list, ACL_REVISION));
        EXPECT_TRUE(::AddAccessAllowedAce(acl, ACL_REVISION, access, everyone.data()));
        SECURITY_DESCRIPTOR descriptor{};
        EXPECT_TRUE(::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
        EXPECT_TRUE(::SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE));
        EXPECT_EQ(::RegSetKeySecurity(m_key.Get(), DACL_SECURITY_INFORMATION, &descriptor), ERROR_SUCCESS);
    }

    win32::RegistryKey m_key;
};

class ConfigurationOfAStandardUser : public Configuration
{
protected:
    ConfigurationOfAStandardUser()
    {
        const auto product = Product(L"A");
        product.WriteDword(L"ProductID", 0x0600);
        product.WriteDword(L"BootloaderVersion", 7);
        const auto options = Options();
        options.WriteDword(L"LogFileLimt(MB)", 3);
        options.WriteDword(L"AppendLogFile", 0);
        options.WriteDword(L"SimulateUSB", 1);
        const auto device = Options(L"3");
        device.WriteDword(L"DebugMask", 0x00200020);
        device.WriteString(L"DeviceName", L"Reader");
        for (const std::wstring& path : {std::wstring(ProductsKey), std::wstring(ProductsKey) + L"\\A",
                                         std::wstring(OptionsKey), std::wstring(OptionsKey) + L"\\3"})
        {
            m_protected.emplace_back(path);
        }
        m_store.LoadConfiguration();
    }

    std::list<WriteProtected> m_protected;
};

TEST_F(ConfigurationOfAStandardUser, ReadsAllSettings)
{
    EXPECT_EQ(m_store.LogFileLimit(), 3U);
    EXPECT_FALSE(m_store.AppendLogFile());
    EXPECT_TRUE(m_store.IsSimulation());
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0600));
    EXPECT_EQ(m_store.GetBootloaderVersion(0x0600), 7);
    ASSERT_EQ(m_store.DeviceOptions().count(3), 1U);
    EXPECT_EQ(m_store.DeviceOptions().at(3).DeviceName, L"Reader");
    EXPECT_EQ(m_store.CombinedMask(), 0x00200020U);
}

TEST_F(ConfigurationOfAStandardUser, NamingADeviceDoesNothing)
{
    m_store.RegisterDeviceName(L"Other", 4);
    EXPECT_EQ(m_store.DeviceOptions().count(4), 0U);
    EXPECT_FALSE(Exists(std::wstring(OptionsKey) + L"\\4"));
}

TEST_F(ConfigurationOfAStandardUser, AppliedSettingsHoldForThisRun)
{
    m_store.Apply(25, true, false, OptionsFor(3, 0x00080008));
    EXPECT_EQ(m_store.LogFileLimit(), 25U);
    EXPECT_TRUE(m_store.AppendLogFile());
    EXPECT_FALSE(m_store.IsSimulation());
    Trace(3, trace::Usb, "wanted");
    EXPECT_EQ(m_output.Count("wanted"), 1U);

    ConfigurationStore next(m_frontEnd);
    next.LoadConfiguration();
    EXPECT_EQ(next.LogFileLimit(), 3U);
    EXPECT_TRUE(next.IsSimulation());
    EXPECT_EQ(next.CombinedMask(), 0x00200020U);
}

// Below a key that is deleted nothing can be opened or created.
TEST_F(Configuration, WithoutAccessToTheKeysNothingIsReadAndNothingBreaks)
{
    Options().WriteDword(L"LogFileLimt(MB)", 3);
    Options(L"3").WriteDword(L"DebugMask", 1);
    Product(L"A").WriteDword(L"ProductID", 0x0600);
    ::RegDeleteTreeW(m_root.Get(), nullptr);
    ASSERT_EQ(::RegDeleteKeyW(m_root.Get(), L""), ERROR_SUCCESS);
    m_store.LoadConfiguration();
    EXPECT_EQ(m_store.LogFileLimit(), 10U);
    EXPECT_TRUE(m_store.DeviceOptions().empty());
    EXPECT_TRUE(m_store.IsSupportedProduct(0x1E4F, 0x0100));
    m_store.RegisterDeviceName(L"Reader", 3);
    EXPECT_TRUE(m_store.DeviceOptions().empty());
    m_store.Apply(12, true, true, {});
    EXPECT_EQ(m_store.LogFileLimit(), 12U);
}

} // namespace
