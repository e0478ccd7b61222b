// The installer over a router that serves a client. Wine has no Restart Manager, so the test sends what that
// sends.
#include "client/RouterAutomation.h"
#include "tests/support/PipeClient.h"
#include "tests/support/RouterNames.h"
#include "tests/support/TestSupport.h"
#include "tests/system/install/InstalledProduct.h"
#include "win32/RegistryKey.h"
#include "win32/Text.h"

#include <objbase.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

class RunningRouter : public InstalledProduct
{
protected:
    RunningRouter() { ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    ~RunningRouter() override
    {
        m_router.Release();
        ::CoUninitialize();
        m_process.WaitForEnd(60'000);
    }

    /// Starts the installed router, which traces its ports and threads into the log, and connects as a client.
    void Serve()
    {
        for (const wchar_t* device : {L"-1", L"3"}) {
            win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, (SettingsKey + L"\\DeviceOptions\\" + device).c_str(),
                                       KEY_READ | KEY_WRITE)
                .WriteDword(L"DebugMask", 0x003C'0000);
        }
        m_instrument.emplace();
        ASSERT_TRUE(m_instrument->IsServed());
        Start();
        const std::wstring pipe = support::UniqueName(L"Installed");
        ASSERT_EQ(m_router.Register(3, 1, 1024, 1024, pipe), RouterAutomation::Result::Done);
        ASSERT_TRUE(m_client.Open(win32::ToAnsi(pipe)));
    }
    void Start()
    {
        ASSERT_EQ(m_router.Create(RouterAutomation::Binding::Early), RouterAutomation::Result::Done);
        ASSERT_TRUE(m_process.Find());
    }

    std::optional<SimulatedInstrument> m_instrument;
    RouterAutomation m_router;
    RouterProcess m_process;
    support::PipeClient m_client;
};

std::string Log()
{
    std::ifstream in(InstalledFolder() / L"Log" / L"MorvanePortRouter.log", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// As the Restart Manager does ("Guidelines for Applications", Restart Manager). False when the router objects.
bool EndAsTheRestartManagerDoes()
{
    const HWND window = ::FindWindowW(nullptr, support::DialogTitle);
    DWORD_PTR agrees = 0;
    DWORD_PTR ignored = 0;
    return ::SendMessageTimeoutW(window, WM_QUERYENDSESSION, 0, ENDSESSION_CLOSEAPP, SMTO_NORMAL, 60'000,
                                 &agrees) != 0 &&
           agrees == TRUE &&
           ::SendMessageTimeoutW(window, WM_ENDSESSION, TRUE, ENDSESSION_CLOSEAPP, SMTO_NORMAL, 60'000,
                                 &ignored) != 0;
}

TEST_F(RunningRouter, EndsInOrderForAnUpgradeAndComesBackAsTheNewOne)
{
    ASSERT_EQ(Install(PreviousPackage(), L"SIMULATEUSB=1"), 0U);
    ASSERT_NO_FATAL_FAILURE(Serve());
    ASSERT_EQ(VersionOf(Program(L"MorvanePortRouter.exe")), L"0.9.9.0");

    ASSERT_TRUE(EndAsTheRestartManagerDoes());
    EXPECT_TRUE(m_client.WaitForBreak());
    EXPECT_EQ(m_process.WaitForEnd(60'000), 0U);
    const std::string log = Log();
    EXPECT_NE(log.find("CCDevicePortPipe::PipeProcessThread Ended"), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("********* End Logging *********\r\n")) << log;

    ASSERT_EQ(Install(CurrentPackage()), 0U);
    m_router.Release();
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_NE(VersionOf(Program(L"MorvanePortRouter.exe")), L"0.9.9.0");
}

/// What Windows renames and deletes before the next start's programs.
std::wstring PendingRenames()
{
    std::vector<wchar_t> text(65'536);
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    ::RegGetValueW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Control\\Session Manager",
                   L"PendingFileRenameOperations", RRF_RT_REG_MULTI_SZ, nullptr, text.data(), &size);
    std::ranges::replace(text, L'\0', L'\n');
    return {text.begin(), text.end()};
}

TEST_F(RunningRouter, ThatStaysServesOnUntilThePcRestarts)
{
    ASSERT_EQ(Install(PreviousPackage(), L"SIMULATEUSB=1"), 0U);
    ASSERT_NO_FATAL_FAILURE(Serve());
    ASSERT_EQ(PendingRenames().find(L"MorvanePortRouter.exe"), std::wstring::npos);
    EXPECT_EQ(Install(CurrentPackage()), static_cast<DWORD>(ERROR_SUCCESS_REBOOT_REQUIRED));

    ASSERT_TRUE(m_client.Write("still there?"));
    EXPECT_EQ(m_client.Read(), "still there?");
    EXPECT_NE(PendingRenames().find(L"MorvanePortRouter.exe"), std::wstring::npos);
    EXPECT_TRUE(IsInstalled(CurrentPackage()));
    EXPECT_FALSE(IsInstalled(PreviousPackage()));
}

} // namespace
