#include "host/HostWatch.h"
#include "win32/ModulePath.h"
#include "win32/Windows.h"

#include <gtest/gtest.h>
#include <cwctype>

namespace {

std::wstring OwnName()
{
    const std::wstring path = win32::ModulePath().value();
    return path.substr(win32::FolderOf(path).size());
}

std::uint32_t FindProcess(const std::wstring& name)
{
    QuitRequest quit(::GetCurrentThreadId());
    return HostWatch(quit).FindProcess(name);
}

TEST(FindProcess, FindsARunningProgramByItsExactName)
{
    // Another run of this test program may be about: its number would be right, too.
    EXPECT_NE(FindProcess(OwnName()), 0U);
}

TEST(FindProcess, ANameThatDiffersOnlyInCaseIsNotFound)
{
    std::wstring name = OwnName();
    name[0] = static_cast<wchar_t>(std::towupper(name[0]));
    ASSERT_NE(name, OwnName());
    EXPECT_EQ(FindProcess(name), 0U);
}

TEST(FindProcess, AProgramThatDoesNotRunGivesZero)
{
    EXPECT_EQ(FindProcess(L"NoSuchProgramAnywhere.exe"), 0U);
    EXPECT_EQ(FindProcess(std::wstring()), 0U);
}

} // namespace
