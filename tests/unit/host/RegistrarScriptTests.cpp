#include "host/Registration.h"

#include "tests/support/TestSupport.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

namespace {

class Script : public testing::Test
{
protected:
    HRESULT Register(const std::wstring& text) { return Run(text, &WriteKeys); }
    HRESULT Unregister(const std::wstring& text) { return Run(text, &RemoveKeys); }

    std::optional<std::wstring> Value(const std::wstring& path, const wchar_t* name = nullptr) const
    {
        const auto key = win32::RegistryKey::Open(Classes(), path.c_str(), KEY_READ);
        return key ? key.ReadString(name, 512) : std::nullopt;
    }
    bool Exists(const std::wstring& path) const
    {
        return static_cast<bool>(win32::RegistryKey::Open(Classes(), path.c_str(), KEY_READ));
    }
    win32::RegistryKey Create(const std::wstring& path) const
    {
        return win32::RegistryKey::Create(Classes(), path.c_str(), KEY_ALL_ACCESS);
    }
    HKEY Classes() const { return m_root.Get(); }

    ScriptReplacements m_replacements;

private:
    HRESULT Run(const std::wstring& text, decltype(&WriteKeys) run)
    {
        std::vector<RegistrationKey> keys;
        const HRESULT read = ReadKeys(text, m_replacements, keys);
        return SUCCEEDED(read) ? run(Classes(), keys, KEY_WOW64_64KEY) : read;
    }

    const support::RegistryRoot m_root{HKEY_CLASSES_ROOT};
};

constexpr wchar_t Sample[] = LR"(
HKCR
{
    Program.1 = s 'The class'
    {
        CLSID = s '{1234}'
        val Extra = s text
    }
    NoRemove Shared
    {
        ForceRemove {1234} = s 'Ours'
        {
            ForceRemove 'Empty'
            val AppID = s '{5678}'
        }
    }
})";

TEST_F(Script, WritesKeysDefaultValuesAndNamedValues)
{
    EXPECT_EQ(Register(Sample), S_OK);
    EXPECT_EQ(Value(L"Program.1"), L"The class");
    EXPECT_EQ(Value(L"Program.1", L"Extra"), L"text");
    EXPECT_EQ(Value(L"Program.1\\CLSID"), L"{1234}");
    EXPECT_EQ(Value(L"Shared\\{1234}"), L"Ours");
    EXPECT_EQ(Value(L"Shared\\{1234}", L"AppID"), L"{5678}");
    EXPECT_TRUE(Exists(L"Shared\\{1234}\\Empty"));
    EXPECT_EQ(Value(L"Shared\\{1234}\\Empty"), std::nullopt);
    EXPECT_EQ(Value(L"Shared"), std::nullopt);
}

TEST_F(Script, RemovesAllButTheSharedKey)
{
    Register(Sample);
    EXPECT_EQ(Unregister(Sample), S_OK);
    EXPECT_FALSE(Exists(L"Program.1"));
    EXPECT_FALSE(Exists(L"Shared\\{1234}"));
    EXPECT_TRUE(Exists(L"Shared"));
}

TEST_F(Script, LeavesWhatOthersPutIntoTheSharedKey)
{
    Register(Sample);
    Create(L"Shared\\Theirs");
    Unregister(Sample);
    EXPECT_TRUE(Exists(L"Shared\\Theirs"));
}

TEST_F(Script, AForceRemoveKeyGoesWithAllThatOthersPutBelowIt)
{
    Register(Sample);
    Create(L"Shared\\{1234}\\Foreign\\Deep");
    EXPECT_EQ(Unregister(Sample), S_OK);
    EXPECT_FALSE(Exists(L"Shared\\{1234}"));
}

TEST_F(Script, AForceRemoveKeyIsEmptiedBeforeItIsWritten)
{
    Create(L"Shared\\{1234}\\Stale").WriteString(nullptr, L"old");
    EXPECT_EQ(Register(Sample), S_OK);
    EXPECT_FALSE(Exists(L"Shared\\{1234}\\Stale"));
    EXPECT_EQ(Value(L"Shared\\{1234}"), L"Ours");
}

TEST_F(Script, APlainKeyThatOthersUseStaysWithTheirs)
{
    Register(Sample);
    Create(L"Program.1\\Foreign");
    EXPECT_EQ(Unregister(Sample), S_OK);
    EXPECT_TRUE(Exists(L"Program.1\\Foreign"));
    EXPECT_FALSE(Exists(L"Program.1\\CLSID"));
    EXPECT_EQ(Value(L"Program.1", L"Extra"), std::nullopt);
}

TEST_F(Script, RemovingWhatWasNeverWrittenWorks)
{
    EXPECT_EQ(Unregister(Sample), S_OK);
    EXPECT_FALSE(Exists(L"Shared"));
}

TEST_F(Script, AnIncompleteRegistrationIsRemoved)
{
    Register(Sample);
    ::RegDeleteTreeW(Classes(), L"Program.1\\CLSID");
    ::RegDeleteTreeW(Classes(), L"Shared\\{1234}\\Empty");
    EXPECT_EQ(Unregister(Sample), S_OK);
    EXPECT_FALSE(Exists(L"Program.1"));
    EXPECT_FALSE(Exists(L"Shared\\{1234}"));
}

TEST_F(Script, WritingTwiceIsTheSameAsOnce)
{
    Register(Sample);
    EXPECT_EQ(Register(Sample), S_OK);
    EXPECT_EQ(Value(L"Program.1\\CLSID"), L"{1234}");
}

TEST_F(Script, NamesInPercentSignsAreReplacedByTextsAsTheyAre)
{
    m_replacements = {{L"MODULE", L"C:\\It's 100 % here\\a b.exe"}, {L"APPID", L"{9}"}};
    EXPECT_EQ(Register(L"HKCR { K = s 'x%MODULE%y' { val %APPID% = s '50%%' } %APPID% }"), S_OK);
    EXPECT_EQ(Value(L"K"), L"xC:\\It's 100 % here\\a b.exey");
    EXPECT_EQ(Value(L"K", L"{9}"), L"50%");
    EXPECT_TRUE(Exists(L"{9}"));
}

TEST_F(Script, QuotedWordsHoldBlanksBracesAndQuotes)
{
    EXPECT_EQ(Register(L"HKCR { 'A Key' = s 'it''s' { '{' = s '' } }"), S_OK);
    EXPECT_EQ(Value(L"A Key"), L"it's");
    EXPECT_EQ(Value(L"A Key\\{"), L"");
}

class MalformedScript : public Script, public testing::WithParamInterface<const wchar_t*>
{};

TEST_P(MalformedScript, IsRefusedBeforeAnythingIsWritten)
{
    EXPECT_EQ(Register(GetParam()), HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    EXPECT_FALSE(Exists(L"Good"));
}

INSTANTIATE_TEST_SUITE_P(Texts, MalformedScript,
                         testing::Values(L"", L"HKCR", L"HKCR {", L"HKLM { Good }", L"HKCR { Good } }",
                                         L"HKCR { Good = }", L"HKCR { Good = d 5 }", L"HKCR { Good = s",
                                         L"HKCR { Good { }", L"HKCR { Good val X = s y }",
                                         L"HKCR { val X = s y Good }", L"HKCR { Good { val X } }",
                                         L"HKCR { Good = s 'open }", L"HKCR { Good %NOPE% }",
                                         L"HKCR { Good 100% }", L"HKCR { Good '' }", L"HKCR { Good NoRemove }"));

TEST_F(Script, AFailingStepGivesItsResultAndEndsTheWriting)
{
    // No key can be written below one that is marked for deletion by its owner.
    const auto doomed = Create(L"Doomed");
    ::RegDeleteTreeW(Classes(), L"Doomed");
    const auto keys = ParseScript(L"HKCR { A B }", {}).value();
    EXPECT_EQ(WriteKeys(doomed.Get(), keys, KEY_WOW64_64KEY), HRESULT_FROM_WIN32(ERROR_KEY_DELETED));
    // No key has a name of 300 characters.
    const auto tooLong = ParseScript(L"HKCR { " + std::wstring(300, L'K') + L" After }", {}).value();
    EXPECT_TRUE(FAILED(WriteKeys(Classes(), tooLong, KEY_WOW64_64KEY)));
    EXPECT_FALSE(Exists(L"After"));
}

} // namespace
