#include "win32/TimerResolution.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TestSupport.h"
#include "win32/ModulePath.h"
#include "win32/Windows.h"

#include <gtest/gtest.h>
#include <filesystem>

namespace {

std::filesystem::path SystemFolder()
{
    wchar_t folder[MAX_PATH] = {};
    ::GetSystemDirectoryW(folder, MAX_PATH);
    return folder;
}

/// The file of a loaded library; empty when none of that name is loaded.
std::filesystem::path LoadedFrom(const wchar_t* library)
{
    wchar_t file[MAX_PATH] = {};
    const HMODULE module = ::GetModuleHandleW(library);
    return module != nullptr && ::GetModuleFileNameW(module, file, MAX_PATH) != 0 ? file : L"";
}

bool IsSamePath(const std::filesystem::path& left, const std::filesystem::path& right)
{
    return ::_wcsicmp(left.c_str(), right.c_str()) == 0;
}

// The one below runs this in a copy of the test program, beside which another winmm.dll lies.
TEST(TimerResolution, DISABLED_ComesFromTheSystemFolder)
{
    win32::TimerResolution resolution;
    resolution.Raise();
    EXPECT_TRUE(IsSamePath(LoadedFrom(L"winmm.dll"), SystemFolder() / L"winmm.dll")) << LoadedFrom(L"winmm.dll");
}

TEST(TimerResolution, ALibraryBesideTheProgramIsNotLoaded)
{
    const support::TempFolder folder;
    const std::filesystem::path program = folder.Path() / L"Copy.exe";
    std::filesystem::copy_file(win32::ModulePath().value(), program);
    std::filesystem::copy_file(SystemFolder() / L"version.dll", folder.Path() / L"winmm.dll");
    const support::ChildProcess copy(program, L"--gtest_also_run_disabled_tests "
                                              L"--gtest_filter=TimerResolution.DISABLED_*");
    EXPECT_EQ(copy.WaitForExit(), 0U) << copy.Output();
    EXPECT_NE(copy.Output().find("1 test"), std::string::npos) << copy.Output();
}

} // namespace
