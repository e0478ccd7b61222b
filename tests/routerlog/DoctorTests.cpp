// The built RouterLog's doctor, on a Windows whose faults a test plants for real.
#include "tests/support/ChildProcess.h"
#include "tests/support/RouterNames.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TempFolder.h"
#include "tests/support/UniqueName.h"
#include "tests/system/BusProcess.h"
#include "win32/RegistryKey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const wchar_t* Class = L"Software\\Classes\\CLSID\\{7A1C5E20-3B94-4F0D-9E61-2C8B7D4F1A93}";
constexpr const wchar_t* ProgId = L"Software\\Classes\\MorvanePortRouter.MorvaneUSBRouter.1";
constexpr const wchar_t* TypeLibrary = L"Software\\Classes\\TypeLib\\{B58E0F3C-61D2-4A7E-8C19-5D0A3E6B9F24}";

std::wstring Below(const wchar_t* key, const wchar_t* name)
{
    return std::wstring(key) + L"\\" + name;
}

/// A router that is registered, set to use the simulator, and healthy, but for the simulator.
class DoctorProgram : public testing::Test
{
protected:
    std::string Run(const std::wstring& switches = {})
    {
        const support::ChildProcess program(support::ProgramFolder() / L"RouterLog.exe", L"doctor " + switches);
        code = program.WaitForExit();
        return program.Output();
    }
    static win32::RegistryKey Key(HKEY hive, const std::wstring& name)
    {
        return win32::RegistryKey::Create(hive, name.c_str(), KEY_READ | KEY_WRITE);
    }

    RouterSession session{RouterSession::Transport::Simulation};
    std::wstring simulatorPipe = L"\\\\.\\pipe\\UsbPipeSimulator";
    win32::FileHandle simulator{
        ::CreateNamedPipeW(simulatorPipe.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr)};
    std::optional<DWORD> code;
};

TEST_F(DoctorProgram, SaysOneLineOnAHealthyPc)
{
    const std::string text = Run();
    EXPECT_THAT(text, testing::StartsWith("Healthy: ")) << text;
    EXPECT_EQ(code, 0U);
}

TEST_F(DoctorProgram, FindsAMissingSimulator)
{
    simulator.Reset();
    EXPECT_THAT(Run(), HasSubstr("set to use the simulator, and none is running"));
    EXPECT_EQ(code, 5U);
}

TEST_F(DoctorProgram, FindsAMissingRegistration)
{
    ASSERT_EQ(session.Run(L"/UnregServer"), 0U);
    EXPECT_THAT(Run(), HasSubstr("The router is not registered"));
}

TEST_F(DoctorProgram, FindsARegisteredProgramThatIsMissing)
{
    const std::filesystem::path moved = session.Program().parent_path() / L"moved.exe";
    std::filesystem::rename(session.Program(), moved);
    EXPECT_THAT(Run(), HasSubstr("there is no such file"));
    std::filesystem::rename(moved, session.Program());
}

TEST_F(DoctorProgram, FindsASecondRegistrationOfTheUser)
{
    Key(HKEY_CURRENT_USER, Below(Class, L"LocalServer32"))
        .WriteString(nullptr, L"C:\\Other\\MorvanePortRouter.exe");
    EXPECT_THAT(Run(), HasSubstr("Two routers are registered"));
    ::RegDeleteTreeW(HKEY_CURRENT_USER, Class);
}

TEST_F(DoctorProgram, FindsAWrongProgId)
{
    Key(HKEY_LOCAL_MACHINE, Below(ProgId, L"CLSID"))
        .WriteString(nullptr, L"{00000000-0000-0000-0000-000000000000}");
    EXPECT_THAT(Run(), HasSubstr("belongs to another class"));
}

TEST_F(DoctorProgram, FindsAMissingTypeLibrary)
{
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, TypeLibrary);
    EXPECT_THAT(Run(), HasSubstr("type library is not registered"));
}

TEST_F(DoctorProgram, FindsLogLimitsThatDoHarm)
{
    Key(HKEY_LOCAL_MACHINE, support::OptionsKey).WriteDword(L"LogFileLimt(MB)", 0);
    EXPECT_THAT(Run(), HasSubstr("size limit is 0"));
    Key(HKEY_LOCAL_MACHINE, support::OptionsKey).WriteString(L"LogFileLimt(MB)", L"10");
    EXPECT_THAT(Run(), HasSubstr("is no DWORD"));
}

TEST_F(DoctorProgram, FindsADeviceWhoseNameIsNoNumber)
{
    Key(HKEY_LOCAL_MACHINE, Below(support::OptionsKey, L"Reader"));
    EXPECT_THAT(Run(), HasSubstr("\"Reader\" have no number for a name"));
}

TEST_F(DoctorProgram, FindsALogThatAnotherProgramHolds)
{
    std::filesystem::create_directories(session.LogFile().parent_path());
    const win32::FileHandle log(::CreateFileW(session.LogFile().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_THAT(Run(), HasSubstr("Another program has the log open"));
}

TEST_F(DoctorProgram, FindsAProtectedLog)
{
    std::filesystem::create_directories(session.LogFile().parent_path());
    std::ofstream(session.LogFile()) << "x";
    ASSERT_TRUE(::SetFileAttributesW(session.LogFile().c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_THAT(Run(), HasSubstr("write-protected"));
    ::SetFileAttributesW(session.LogFile().c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(DoctorProgram, FindsAnEmptyFirmwareImage)
{
    session.WriteFirmware(256, "");
    EXPECT_THAT(Run(), HasSubstr("Firmware_256.Out is empty"));
}

TEST_F(DoctorProgram, FindsATakenPipeName)
{
    const std::wstring name = support::UniqueName(L"Taken");
    EXPECT_THAT(Run(L"--pipe " + name), testing::StartsWith("Healthy: "));
    const win32::FileHandle taken(::CreateNamedPipeW((L"\\\\.\\pipe\\" + name).c_str(), PIPE_ACCESS_DUPLEX,
                                                     PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr));
    ASSERT_TRUE(taken);
    EXPECT_THAT(Run(L"--pipe " + name), HasSubstr("is taken by another program"));
}

TEST_F(DoctorProgram, FindsAHeldMutexWithoutARouter)
{
    const win32::KernelHandle mutex(::CreateMutexW(nullptr, FALSE, L"Local\\MorvanePortRouterMutex"));
    EXPECT_THAT(Run(), HasSubstr("holds the router's mutex"));
}

TEST_F(DoctorProgram, FindsAHostProgramInOtherLetters)
{
    const support::TempFolder folder;
    std::filesystem::copy_file(support::ProgramFolder() / L"RouterProbe.exe", folder.Path() / L"LUMIVISTA.exe");
    const std::wstring stopName = support::UniqueName(L"HostStop");
    const win32::KernelHandle stop(::CreateEventW(nullptr, TRUE, FALSE, stopName.c_str()));
    {
        const support::ChildProcess host(
            folder.Path() / L"LUMIVISTA.exe",
            L"listen --attach --keep-going --port 3,1 --pipe-name none --stop-event " + stopName);
        ASSERT_TRUE(host.Running());
        EXPECT_THAT(Run(), HasSubstr("runs as \"LUMIVISTA.exe\""));
        ::SetEvent(stop.Get());
        host.WaitForExit();
    }
}

TEST_F(DoctorProgram, CallsTheRouterOnlyWhenAsked)
{
    const std::string quiet = Run();
    EXPECT_THAT(quiet, Not(HasSubstr("Starting")));
    EXPECT_FALSE(std::filesystem::exists(session.LogFile().parent_path()));
    const std::string text = Run(L"--activate");
    EXPECT_THAT(text, HasSubstr("Starting the router to call it"));
    EXPECT_THAT(text, HasSubstr("Healthy: ")) << text;
    EXPECT_TRUE(support::WaitUntil([] { return FindProgram(L"MorvanePortRouter.exe") == 0; }));
}

TEST_F(DoctorProgram, SetsTheMasksAsTheDialogDoes)
{
    RouterSession::SetMask(3, 0x00010003);
    Run(L"--trace-on usb,pipe,packets");
    EXPECT_EQ(code, 0U);
    const auto mask = [](const wchar_t* device) {
        return win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, Below(support::OptionsKey, device).c_str(), KEY_READ)
            .ReadDword(L"DebugMask");
    };
    EXPECT_EQ(mask(L"-1"), 0x000C0000U);
    EXPECT_EQ(mask(L"0"), 0U);
    EXPECT_EQ(mask(L"3"), 0x00070003U);
    Run(L"--trace-off packets");
    EXPECT_EQ(mask(L"3"), 0x00050003U);
    Run(L"--trace-on swimming");
    EXPECT_EQ(code, 2U);
}

/// A registered router that is set to use USB.
class DoctorProgramOverUsb : public testing::Test
{
protected:
    static std::string RunWith(const std::wstring& busSwitches)
    {
        const BusProcess bus(L"--quiet " + busSwitches);
        EXPECT_TRUE(bus.WaitUntilServed()) << bus.Output();
        return Run();
    }
    static std::string Run()
    {
        const support::ChildProcess program(support::ProgramFolder() / L"RouterLog.exe", L"doctor");
        program.WaitForExit();
        return program.Output();
    }

    RouterSession session{RouterSession::Transport::Usb};
};

TEST_F(DoctorProgramOverUsb, SaysOneLineWithAnInstrumentAndFindsItMissing)
{
    EXPECT_THAT(RunWith({}), testing::StartsWith("Healthy: "));
    EXPECT_THAT(Run(), HasSubstr("No instrument is plugged in"));
}

TEST_F(DoctorProgramOverUsb, FindsAnInstrumentThatTheRouterDoesNotAccept)
{
    EXPECT_THAT(RunWith(L"--product 0x0600"), HasSubstr("product 0x0600, is none that the router accepts"));
    RouterSession::AddProduct(0x0600, 2);
    EXPECT_THAT(RunWith(L"--product 0x0600"), testing::StartsWith("Healthy: "));
}

} // namespace
