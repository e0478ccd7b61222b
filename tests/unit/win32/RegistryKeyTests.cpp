#include "tests/support/TestSupport.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using win32::RegistryKey;

class RegistryKeyTest : public ::testing::Test
{
protected:
    void Store(const wchar_t* name, DWORD type, const void* data, std::size_t size)
    {
        ASSERT_EQ(
            ::RegSetValueExW(m_key.Get(), name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size)),
            ERROR_SUCCESS);
    }

    support::RegistryRoot m_root;
    RegistryKey m_key = RegistryKey::Create(HKEY_LOCAL_MACHINE, L"Software\\Test", KEY_ALL_ACCESS);
};

TEST_F(RegistryKeyTest, AMissingKeyIsNone)
{
    EXPECT_FALSE(RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software\\Missing", KEY_READ));
}

TEST_F(RegistryKeyTest, CreatingMakesTheKeysAboveToo)
{
    EXPECT_TRUE(RegistryKey::Create(HKEY_LOCAL_MACHINE, L"Software\\A\\B\\C", KEY_ALL_ACCESS));
    EXPECT_TRUE(RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software\\A\\B", KEY_READ));
}

TEST_F(RegistryKeyTest, DwordsAreReadAsWritten)
{
    m_key.WriteDword(L"Value", 0xFFFFFFFF);
    EXPECT_EQ(m_key.ReadDword(L"Value"), 0xFFFFFFFFu);
}

TEST_F(RegistryKeyTest, AMissingOrForeignDwordIsNone)
{
    EXPECT_FALSE(m_key.ReadDword(L"Missing"));
    m_key.WriteString(L"Text", L"7");
    EXPECT_FALSE(m_key.ReadDword(L"Text"));
    const DWORD value = 7;
    Store(L"Binary", REG_BINARY, &value, sizeof value);
    EXPECT_FALSE(m_key.ReadDword(L"Binary"));
    Store(L"Short", REG_DWORD, &value, 2);
    EXPECT_FALSE(m_key.ReadDword(L"Short"));
}

TEST_F(RegistryKeyTest, StringsAreReadAsWritten)
{
    m_key.WriteString(L"Name", L"Lumivista.exe");
    EXPECT_EQ(m_key.ReadString(L"Name", 50), L"Lumivista.exe");
    m_key.WriteString(L"Empty", std::wstring());
    EXPECT_EQ(m_key.ReadString(L"Empty", 50), std::wstring());
}

TEST_F(RegistryKeyTest, AMissingOrForeignStringIsNone)
{
    EXPECT_FALSE(m_key.ReadString(L"Missing", 50));
    m_key.WriteDword(L"Number", 7);
    EXPECT_FALSE(m_key.ReadString(L"Number", 50));
    Store(L"Expand", REG_EXPAND_SZ, L"a", 4);
    EXPECT_FALSE(m_key.ReadString(L"Expand", 50));
}

TEST_F(RegistryKeyTest, AStringMayFillTheCapacityWithItsTerminatorButNotMore)
{
    m_key.WriteString(L"Fits", std::wstring(9, L'x'));
    EXPECT_EQ(m_key.ReadString(L"Fits", 10), std::wstring(9, L'x'));
    m_key.WriteString(L"Long", std::wstring(10, L'x'));
    EXPECT_FALSE(m_key.ReadString(L"Long", 10));
}

TEST_F(RegistryKeyTest, AStringStoredWithoutTerminatorIsReadWhole)
{
    Store(L"Bare", REG_SZ, L"abc", 6);
    EXPECT_EQ(m_key.ReadString(L"Bare", 50), L"abc");
}

TEST_F(RegistryKeyTest, SubkeysAreNamedUntilTheEnd)
{
    RegistryKey::Create(m_key.Get(), L"17", KEY_ALL_ACCESS);
    RegistryKey::Create(m_key.Get(), L"23", KEY_ALL_ACCESS);
    EXPECT_EQ(m_key.SubkeyName(0), L"17");
    EXPECT_EQ(m_key.SubkeyName(1), L"23");
    EXPECT_FALSE(m_key.SubkeyName(2));
}

TEST_F(RegistryKeyTest, ASubkeyNameOfMoreThan99CharactersIsNone)
{
    RegistryKey::Create(m_key.Get(), std::wstring(99, L'a').c_str(), KEY_ALL_ACCESS);
    RegistryKey::Create(m_key.Get(), std::wstring(100, L'b').c_str(), KEY_ALL_ACCESS);
    EXPECT_EQ(m_key.SubkeyName(0), std::wstring(99, L'a'));
    EXPECT_FALSE(m_key.SubkeyName(1));
}

TEST_F(RegistryKeyTest, WritingThroughAReadOnlyKeyFailsSilently)
{
    m_key.WriteDword(L"Value", 1);
    // A key that is none refuses every access, as a read-only one does for a user without rights.
    const RegistryKey none;
    none.WriteDword(L"Value", 2);
    none.WriteString(L"Name", L"text");
    EXPECT_FALSE(none.ReadDword(L"Value"));
    EXPECT_EQ(m_key.ReadDword(L"Value"), 1u);
}

TEST_F(RegistryKeyTest, MovingHandsTheKeyOver)
{
    m_key.WriteDword(L"Value", 5);
    const RegistryKey other(std::move(m_key));
    EXPECT_EQ(other.ReadDword(L"Value"), 5u);
}

} // namespace
