#include "diag/CDebugOption.h"

#include "tests/support/TestSupport.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

namespace {

class DebugOptionTest : public testing::Test
{
protected:
    support::RegistryRoot m_root{HKEY_LOCAL_MACHINE};

    win32::RegistryKey Subkey(const wchar_t* name) const
    {
        return win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, name, KEY_READ | KEY_WRITE);
    }

    bool HasSubkey(const wchar_t* name) const
    {
        return static_cast<bool>(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, name, KEY_READ));
    }
};

void ExpectDefaults(const CDebugOption& option)
{
    EXPECT_EQ(option.GetMask(), 0u);
    EXPECT_EQ(option.MaxPacketLength, 100u);
    EXPECT_EQ(option.MaxParsedPacketLength, 100u);
    EXPECT_EQ(option.EnableSimulation, 0u);
}

CDebugOption UnusualOption(std::int32_t number)
{
    CDebugOption option(number);
    option.DeviceName = L"Pump";
    option.SetMask(0x80050003);
    option.MaxPacketLength = 7;
    option.MaxParsedPacketLength = 8;
    option.EnableSimulation = 1;
    return option;
}

void ExpectEqual(const CDebugOption& left, const CDebugOption& right)
{
    EXPECT_EQ(left.DeviceNumber, right.DeviceNumber);
    EXPECT_EQ(left.DeviceName, right.DeviceName);
    EXPECT_EQ(left.GetMask(), right.GetMask());
    EXPECT_EQ(left.MaxPacketLength, right.MaxPacketLength);
    EXPECT_EQ(left.MaxParsedPacketLength, right.MaxParsedPacketLength);
    EXPECT_EQ(left.EnableSimulation, right.EnableSimulation);
}

TEST_F(DebugOptionTest, NewRecordHasItsNumberAndDefaults)
{
    const CDebugOption option(-1);
    EXPECT_EQ(option.DeviceNumber, -1);
    EXPECT_EQ(option.DeviceName, L"Unnamed Device");
    ExpectDefaults(option);
}

TEST_F(DebugOptionTest, MaskReadsBackAsTheNumberItWasBuiltFrom)
{
    CDebugOption option(0);
    for (const std::uint32_t mask : {0u, 1u, 0x80000000u, 0x00210021u, 0xFFFFFFFFu}) {
        option.SetMask(mask);
        EXPECT_EQ(option.GetMask(), mask);
    }
}

TEST_F(DebugOptionTest, OneBitChangesAndTheOthersStay)
{
    CDebugOption option(0);
    option.SetMask(0x00010001);
    option.SetMaskBit(21, true);
    EXPECT_EQ(option.GetMask(), 0x00210001u);
    option.SetMaskBit(0, false);
    EXPECT_EQ(option.GetMask(), 0x00210000u);
    option.SetMaskBit(31, true);
    EXPECT_EQ(option.GetMask(), 0x80210000u);
}

TEST_F(DebugOptionTest, BitBeyondTheMaskIsIgnored)
{
    CDebugOption option(0);
    option.SetMaskBit(32, true);
    EXPECT_EQ(option.GetMask(), 0u);
}

TEST_F(DebugOptionTest, CopyTakesEveryField)
{
    const CDebugOption original = UnusualOption(5);
    CDebugOption copy(9);
    copy = original;
    ExpectEqual(copy, original);
}

TEST_F(DebugOptionTest, ResetKeepsNumberAndName)
{
    CDebugOption option = UnusualOption(5);
    option.Reset();
    ExpectDefaults(option);
    EXPECT_EQ(option.DeviceNumber, 5);
    EXPECT_EQ(option.DeviceName, L"Pump");
}

TEST_F(DebugOptionTest, SavedRecordLoadsBackEqual)
{
    CDebugOption original = UnusualOption(-1);
    ASSERT_TRUE(original.Persist(HKEY_LOCAL_MACHINE, true));
    CDebugOption loaded(-1);
    ASSERT_TRUE(loaded.Persist(HKEY_LOCAL_MACHINE, false));
    ExpectEqual(loaded, original);
}

TEST_F(DebugOptionTest, SavingCreatesTheSubkeyNamedByTheDecimalNumber)
{
    ASSERT_TRUE(CDebugOption(-1).Persist(HKEY_LOCAL_MACHINE, true));
    ASSERT_TRUE(CDebugOption(17).Persist(HKEY_LOCAL_MACHINE, true));
    EXPECT_TRUE(HasSubkey(L"-1"));
    EXPECT_TRUE(HasSubkey(L"17"));
}

TEST_F(DebugOptionTest, SavingWritesOneTextAndFourNumbers)
{
    ASSERT_TRUE(UnusualOption(3).Persist(HKEY_LOCAL_MACHINE, true));
    const auto key = Subkey(L"3");
    EXPECT_EQ(key.ReadString(L"DeviceName", 256), L"Pump");
    EXPECT_EQ(key.ReadDword(L"DebugMask"), 0x80050003u);
    EXPECT_EQ(key.ReadDword(L"MaxPacketLength"), 7u);
    EXPECT_EQ(key.ReadDword(L"MaxParsedPacketLength"), 8u);
    EXPECT_EQ(key.ReadDword(L"EnableSimulation"), 1u);
    DWORD values = 0;
    ::RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                       nullptr, nullptr);
    EXPECT_EQ(values, 5u);
}

TEST_F(DebugOptionTest, LoadingAMissingSubkeyFailsAndCreatesNothing)
{
    CDebugOption option(4);
    EXPECT_FALSE(option.Persist(HKEY_LOCAL_MACHINE, false));
    ExpectDefaults(option);
    EXPECT_FALSE(HasSubkey(L"4"));
}

TEST_F(DebugOptionTest, SavingBelowAKeyThatIsNotThereFails)
{
    EXPECT_FALSE(CDebugOption(4).Persist(nullptr, true));
}

TEST_F(DebugOptionTest, SubkeyWithoutAMaskGivesMaskZeroWhileTheLengthsStay)
{
    Subkey(L"3");
    CDebugOption option(3);
    option.SetMask(0xFFFFFFFF);
    ASSERT_TRUE(option.Persist(HKEY_LOCAL_MACHINE, false));
    ExpectDefaults(option);
    EXPECT_EQ(option.DeviceName, L"Unnamed Device");
}

TEST_F(DebugOptionTest, ValuesOfAWrongTypeCountAsMissing)
{
    const auto key = Subkey(L"3");
    key.WriteDword(L"DeviceName", 1);
    key.WriteString(L"DebugMask", L"255");
    key.WriteString(L"MaxPacketLength", L"7");
    key.WriteString(L"EnableSimulation", L"1");
    CDebugOption option(3);
    ASSERT_TRUE(option.Persist(HKEY_LOCAL_MACHINE, false));
    EXPECT_EQ(option.DeviceName, L"Unnamed Device");
    ExpectDefaults(option);
}

TEST_F(DebugOptionTest, NameOf255CharactersIsReadAndALongerOneIsNot)
{
    const auto key = Subkey(L"3");
    key.WriteString(L"DeviceName", std::wstring(255, L'x'));
    CDebugOption option(3);
    ASSERT_TRUE(option.Persist(HKEY_LOCAL_MACHINE, false));
    EXPECT_EQ(option.DeviceName, std::wstring(255, L'x'));

    key.WriteString(L"DeviceName", std::wstring(256, L'y'));
    CDebugOption other(3);
    ASSERT_TRUE(other.Persist(HKEY_LOCAL_MACHINE, false));
    EXPECT_EQ(other.DeviceName, L"Unnamed Device");
}

TEST_F(DebugOptionTest, SavingTwiceReplacesTheValues)
{
    CDebugOption option = UnusualOption(3);
    ASSERT_TRUE(option.Persist(HKEY_LOCAL_MACHINE, true));
    option.SetMask(0);
    ASSERT_TRUE(option.Persist(HKEY_LOCAL_MACHINE, true));
    EXPECT_EQ(Subkey(L"3").ReadDword(L"DebugMask"), 0u);
}

} // namespace
