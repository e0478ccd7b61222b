#include "win32/CriticalSection.h"
#include "win32/ModulePath.h"
#include "win32/Text.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <filesystem>
#include <string>

namespace {

TEST(Text, AsciiGoesBothWays)
{
    EXPECT_EQ(win32::ToAnsi(L"Port 3"), "Port 3");
    EXPECT_EQ(win32::FromAnsi("Port 3"), L"Port 3");
}

TEST(Text, EmptyStaysEmpty)
{
    EXPECT_EQ(win32::ToAnsi(L""), "");
    EXPECT_EQ(win32::FromAnsi(""), L"");
}

TEST(Text, LengthCountsAndNotAZeroByte)
{
    EXPECT_EQ(win32::FromAnsi(std::string_view("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(ModulePath, NamesTheRunningProgram)
{
    const auto path = win32::ModulePath();
    ASSERT_TRUE(path);
    EXPECT_EQ(std::filesystem::path(*path).filename(), L"unit_win32.exe");
    EXPECT_TRUE(std::filesystem::exists(*path));
}

/// As Windows answers for a program whose path has 400 characters.
DWORD WINAPI LongPath(HMODULE, wchar_t* path, DWORD size)
{
    const std::wstring whole = L"C:\\" + std::wstring(390, L'd') + L"\\r.exe";
    const DWORD copied = std::min<DWORD>(static_cast<DWORD>(whole.size()), size - 1);
    std::copy_n(whole.begin(), copied, path);
    path[copied] = L'\0';
    ::SetLastError(copied < whole.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
    return copied < whole.size() ? size : copied;
}

DWORD WINAPI NoPath(HMODULE, wchar_t*, DWORD)
{
    return 0;
}

TEST(ModulePath, IsNotCutHoweverLongItIs)
{
    const auto path = win32::ModulePathBy(&LongPath);
    ASSERT_TRUE(path);
    EXPECT_EQ(path->size(), 399u);
    EXPECT_EQ(win32::FolderOf(*path).size(), 394u);
}

TEST(ModulePath, IsNoneWhenWindowsDoesNotTellIt)
{
    EXPECT_FALSE(win32::ModulePathBy(&NoPath));
}

TEST(ModulePath, TheFolderKeepsItsLastBackslash)
{
    EXPECT_EQ(win32::FolderOf(L"C:\\Program Files\\Router\\r.exe"), L"C:\\Program Files\\Router\\");
    EXPECT_EQ(win32::FolderOf(L"r.exe"), L"");
}

TEST(CriticalSection, MayBeEnteredAgainByItsThread)
{
    win32::CriticalSection section;
    section.Enter();
    section.Enter();
    section.Leave();
    section.Leave();
}

} // namespace
