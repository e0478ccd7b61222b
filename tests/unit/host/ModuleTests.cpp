#include "host/CMorvanePortRouterModule.h"

#include "host/HostWatch.h"
#include "ports/CCDevicePortPipe.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterNames.h"
#include "tests/support/TestSupport.h"
#include "tests/unit/ports/FakeTransport.h"
#include "win32/ModulePath.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

namespace {

using support::OptionsKey;

/// In simulation mode, so that no instrument is looked for. Without COM on this thread the class object cannot be
/// registered, which the rest of the start-up must not care about.
class Module : public testing::Test
{
protected:
    Module()
    {
        win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, OptionsKey, KEY_WRITE).WriteDword(L"SimulateUSB", 1);
    }
    /// A WM_QUIT that is left would end the next test's message loop.
    ~Module() override
    {
        MSG message{};
        ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE);
    }

    const support::RegistryRoot m_root;
    CMorvanePortRouterModule m_module{::GetModuleHandleW(nullptr)};
};

HWND FindDialog()
{
    HWND dialog = nullptr;
    ::EnumThreadWindows(
        ::GetCurrentThreadId(),
        [](HWND window, LPARAM result) -> BOOL {
            wchar_t title[64] = {};
            ::GetWindowTextW(window, title, 64);
            if (std::wstring_view(title) == support::DialogTitle) {
                *reinterpret_cast<HWND*>(result) = window;
                return FALSE;
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&dialog));
    return dialog;
}

TEST_F(Module, BeforeTheStartThereIsNoTransport)
{
    EXPECT_EQ(m_module.Transport(), nullptr);
    EXPECT_FALSE(m_module.IsConnected());
    EXPECT_FALSE(m_module.IsUpdatingFirmware());
    EXPECT_EQ(m_module.GetTransferredBytes(), 0U);
}

TEST_F(Module, AFailedClassRegistrationIsTheResultAndStopsNothing)
{
    EXPECT_EQ(m_module.PreMessageLoop(), CO_E_NOTINITIALIZED);
    EXPECT_NE(m_module.Transport(), nullptr);
    EXPECT_TRUE(m_module.SimulateUsb());
    const HWND dialog = FindDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_FALSE(::IsWindowVisible(dialog));
}

TEST_F(Module, StartsStandaloneWhenNoHostProgramRuns)
{
    ASSERT_EQ(m_module.Watch().FindProcess(L"Lumivista.exe"), 0U);
    ASSERT_EQ(m_module.Watch().FindProcess(L"RouterProbe.exe"), 0U);
    EXPECT_FALSE(m_module.Watch().IsStandalone());
    m_module.PreMessageLoop();
    EXPECT_TRUE(m_module.Watch().IsStandalone());
}

/// This test program under the name of a host program: it runs the test below, until it is ended.
class HostProgram
{
public:
    explicit HostProgram(const wchar_t* name) : m_program(m_folder.Path() / name)
    {
        std::filesystem::copy_file(win32::ModulePath().value(), m_program);
        m_process.emplace(m_program, L"--gtest_also_run_disabled_tests --gtest_filter=HostPrograms.*");
    }
    bool WaitUntilListed() const
    {
        return support::WaitUntil(
            [this] { return m_watch.FindProcess(m_program.filename().wstring()) == m_process->Id(); });
    }

private:
    QuitRequest m_quit{::GetCurrentThreadId()};
    const HostWatch m_watch{m_quit};
    const support::TempFolder m_folder;
    const std::filesystem::path m_program;
    std::optional<support::ChildProcess> m_process;
};

TEST(HostPrograms, DISABLED_RunUntilTheyAreEnded)
{
    ::WaitForSingleObject(::GetCurrentProcess(), 60'000);
}

class WithHostProgram : public Module, public testing::WithParamInterface<const wchar_t*>
{};

TEST_P(WithHostProgram, IsNotStandaloneAndStaysSo)
{
    std::optional<HostProgram> host(GetParam());
    ASSERT_TRUE(host->WaitUntilListed());
    m_module.PreMessageLoop();
    EXPECT_FALSE(m_module.Watch().IsStandalone());
    host.reset();
    EXPECT_FALSE(m_module.Watch().IsStandalone());
}

INSTANTIATE_TEST_SUITE_P(Names, WithHostProgram, testing::Values(L"Lumivista.exe", L"RouterProbe.exe"));

TEST_F(Module, AHostProgramWhoseNameDiffersInCaseIsNone)
{
    const HostProgram host(L"lumivista.EXE");
    ASSERT_TRUE(host.WaitUntilListed());
    m_module.PreMessageLoop();
    EXPECT_TRUE(m_module.Watch().IsStandalone());
}

TEST_F(Module, TheHostProgramsHaveTheirNames)
{
    EXPECT_EQ(m_module.Watch().GetFirstHostName(), L"Lumivista.exe");
    EXPECT_EQ(m_module.Watch().GetSecondHostName(), L"RouterProbe.exe");
}

TEST_F(Module, ARequestToQuitReachesTheMainThreadAndIsKept)
{
    EXPECT_FALSE(m_module.IsQuitWanted());
    m_module.Watch().RequestQuit();
    MSG message{};
    EXPECT_TRUE(::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_TRUE(m_module.IsQuitWanted());
}

TEST_F(Module, TheDownloadersChannelsAreNamedAtTheStart)
{
    m_module.PreMessageLoop();
    ASSERT_EQ(m_module.DeviceOptions().size(), 2U);
    EXPECT_EQ(m_module.DeviceOptions().at(-1).DeviceName, L"_FirmwareDebug");
    EXPECT_EQ(m_module.DeviceOptions().at(0).DeviceName, L"_FirmwareDownload");
}

TEST_F(Module, TearingDownDeletesPortsTransportAndDialog)
{
    m_module.PreMessageLoop();
    m_module.Ports().AddPort({3, 1}, std::make_unique<CCDevicePortPipe>(m_module.Transport(), PortAddress{3, 1},
                                                                        support::UniqueName("Module"), 256, 256));
    EXPECT_TRUE(m_module.Ports().SendToPort({3, 1}, nullptr, {}));
    m_module.TearDown();
    EXPECT_FALSE(m_module.Ports().SendToPort({3, 1}, nullptr, {}));
    EXPECT_EQ(m_module.Transport(), nullptr);
    EXPECT_EQ(FindDialog(), nullptr);
    m_module.TearDown();
}

TEST_F(Module, TheSessionsEndTakesPortsTransportAndDialog)
{
    m_module.PreMessageLoop();
    m_module.Ports().AddPort({3, 1}, std::make_unique<CCDevicePortPipe>(m_module.Transport(), PortAddress{3, 1},
                                                                        support::UniqueName("Module"), 256, 256));
    m_module.OnSessionEnd();
    EXPECT_FALSE(m_module.Ports().SendToPort({3, 1}, nullptr, {}));
    EXPECT_EQ(m_module.Transport(), nullptr);
    EXPECT_EQ(FindDialog(), nullptr);
    MSG message{};
    EXPECT_TRUE(::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    m_module.TearDown();
}

TEST_F(Module, AtTheSessionsEndAClientThatReadsNothingIsDropped)
{
    // Not the module's own, which makes all ports drop their clients while no instrument is connected.
    FakeTransport connected;
    const std::string name = support::UniqueName("Module");
    m_module.Ports().AddPort({3, 1},
                             std::make_unique<CCDevicePortPipe>(&connected, PortAddress{3, 1}, name, 256, 256));
    const CCDevicePortPipe& port = *m_module.Ports().FindPort({3, 1});
    support::PipeClient client;
    ASSERT_TRUE(support::WaitUntil([&] {
        client.Close();
        return client.Open(name) &&
               support::WaitUntil([&] { return port.IsPipeConnected(); }, std::chrono::seconds(1));
    }));
    const std::uint8_t unread[] = {1, 2, 3};
    ASSERT_TRUE(m_module.Ports().SendToPort({3, 1}, &connected, unread));
    ASSERT_TRUE(support::WaitUntil([&] { return client.Available() == sizeof unread; }));
    m_module.OnSessionEnd();
    EXPECT_TRUE(client.WaitForBreak()) << "the port has ended";
}

TEST_F(Module, AppliedSettingsDoNotChangeTheRunningTransport)
{
    m_module.PreMessageLoop();
    const CCommunicationDriver* const transport = m_module.Transport();
    m_module.ApplySettings(25, false, false, {});
    EXPECT_EQ(m_module.Transport(), transport);
    EXPECT_FALSE(m_module.SimulateUsb());
    EXPECT_EQ(m_module.LogFileLimit(), 25U);
    EXPECT_FALSE(m_module.AppendLogFile());
    EXPECT_EQ(win32::RegistryKey::Open(HKEY_LOCAL_MACHINE, OptionsKey, KEY_READ).ReadDword(L"SimulateUSB"), 0U);
}

TEST_F(Module, TheLogFileHasItsNameWithAndWithoutATracer)
{
    EXPECT_EQ(m_module.LogFileName(), L"MorvanePortRouter.log");
    m_module.PreMessageLoop();
    EXPECT_EQ(m_module.LogFileName(), L"MorvanePortRouter.log");
}

TEST_F(Module, ARegistrationSwitchBuildsNoRouter)
{
    const support::RegistryRoot user(HKEY_CURRENT_USER);
    EXPECT_EQ(m_module.WinMain(L"-UnregServerPerUser"), S_OK);
    EXPECT_EQ(m_module.Transport(), nullptr);
    EXPECT_EQ(FindDialog(), nullptr);
}

} // namespace
