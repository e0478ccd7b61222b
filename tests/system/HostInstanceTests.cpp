// The built router as a process: one at a time, its start and its end.
#include "tests/support/RouterNames.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"
#include "tests/system/RegistryListing.h"
#include "win32/RegistryKey.h"

#include <gtest/gtest.h>

namespace {

using support::DialogTitle;

class HostInstance : public testing::Test
{
protected:
    /// A router that still runs is ended.
    void TearDown() override
    {
        if (m_router && m_router->Running()) {
            Quit(0);
            EXPECT_EQ(m_router->WaitForExit(), 0U);
        }
    }

    /// Starts the program as a person would, and waits until it serves.
    support::ChildProcess& StartByHand(const std::wstring& arguments = L"")
    {
        m_router.emplace(session.Program(), arguments);
        EXPECT_TRUE(m_router->Running());
        EXPECT_TRUE(support::WaitUntil([] { return ::FindWindowW(nullptr, DialogTitle) != nullptr; }));
        return *m_router;
    }
    static void Quit(int code)
    {
        const HWND dialog = ::FindWindowW(nullptr, DialogTitle);
        ::PostThreadMessageW(::GetWindowThreadProcessId(dialog, nullptr), WM_QUIT, static_cast<WPARAM>(code), 0);
    }

    RouterSession session{RouterSession::Transport::Simulation};

private:
    std::optional<support::ChildProcess> m_router;
};

TEST_F(HostInstance, ASecondRouterEndsAtOnceWithCode1)
{
    StartByHand();
    EXPECT_EQ(session.Run(L""), 1U);
}

TEST_F(HostInstance, WhileARouterRunsRegistrationIsRefusedWithCode1)
{
    StartByHand();
    const RegistryListing before = ListRegistry(HKEY_LOCAL_MACHINE, L"Software\\Classes\\AppID");
    EXPECT_EQ(session.Run(L"/RegServer"), 1U);
    EXPECT_EQ(session.Run(L"/UnregServer"), 1U);
    EXPECT_EQ(ListRegistry(HKEY_LOCAL_MACHINE, L"Software\\Classes\\AppID"), before);
}

TEST_F(HostInstance, RunsAboveNormalPriority)
{
    const auto& router = StartByHand();
    EXPECT_EQ(::GetPriorityClass(router.Process()), static_cast<DWORD>(ABOVE_NORMAL_PRIORITY_CLASS));
}

TEST_F(HostInstance, WordsThatAreNoSwitchesRunTheServer)
{
    auto& router = StartByHand(L"-Embedding /whatever RegServer");
    Quit(0);
    EXPECT_EQ(router.WaitForExit(), 0U);
}

TEST_F(HostInstance, EndsWithCode0WhateverTheQuitMessageSays)
{
    auto& router = StartByHand();
    Quit(7);
    EXPECT_EQ(router.WaitForExit(), 0U);
}

TEST_F(HostInstance, ARouterStartedByHandServesAClientAndEndsWithItsRelease)
{
    auto& router = StartByHand();
    ASSERT_TRUE(session.Activate());
    EXPECT_EQ(::GetProcessId(session.Process()), router.Id());
    session.Release();
    EXPECT_EQ(router.WaitForExit(), 0U);
}

TEST_F(HostInstance, DevicesAreTracedAtTheStartInAscendingOrder)
{
    const std::wstring options = L"Software\\Morvane Biosystems\\Devices\\MorvanePortRouter\\DeviceOptions\\";
    for (const auto& [device, name] : {std::pair<int, const wchar_t*>{10, L"Ten"}, {-1, L"Router"}, {9, L"Nine"}})
    {
        RouterSession::SetMask(device, 0x00200000);
        win32::RegistryKey::Create(HKEY_LOCAL_MACHINE, (options + std::to_wstring(device)).c_str(), KEY_WRITE)
            .WriteString(L"DeviceName", name);
    }
    RouterSession::SetMask(4, 0x00080000); // another class only
    auto& router = StartByHand();
    Quit(0);
    ASSERT_EQ(router.WaitForExit(), 0U);
    const std::string log = session.Log();
    std::size_t at = 0;
    for (const char* line : {"******** Begin Logging ********\r\n", "] Router, DebugOptions=0x200000\r\n",
                             "] Nine, DebugOptions=0x200000\r\n", "] Ten, DebugOptions=0x200000\r\n"})
    {
        at = log.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << log;
    }
    EXPECT_EQ(log.find("Unnamed Device, DebugOptions"), std::string::npos);
}

TEST_F(HostInstance, TheEndTakesPortsThenTransportThenTracer)
{
    RouterSession::SetMask(-1, 0x003C0000);
    RouterSession::SetMask(3, 0x003C0000);
    ASSERT_TRUE(session.Activate());
    ASSERT_EQ(session.RegisterPort(3, 1, support::UniqueName(L"Ending")), S_OK);
    ASSERT_TRUE(session.WaitForLog("CCDevicePortPipe::PipeProcessThread Started"));
    Quit(0);
    ASSERT_EQ(session.WaitForEnd(), 0U);
    const std::string log = session.Log();
    std::size_t at = 0;
    for (const char* line : {"CCDevicePortPipe::PipeProcessThread Ended", "CommandProcessThread() ended",
                             "********* End Logging *********\r\n"})
    {
        at = log.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << log;
    }
    // The tracer says that it ends before it writes what is still queued.
    EXPECT_LT(log.find("********* Debug Tracer Terminating *********\r\n"), at) << log;
}

} // namespace
