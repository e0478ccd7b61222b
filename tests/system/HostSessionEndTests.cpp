// The end of the Windows session, as its real messages from another process tell the built router's windows.
#include "tests/support/RouterNames.h"
#include "tests/support/RouterSession.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

using support::DebugWindowClass;
using support::DialogTitle;
constexpr char LogEnd[] = "********* End Logging *********\r\n";

/// A router with a port. What it traces goes to the log file, and in a test of the debug
/// window there too.
class HostSessionEnd : public testing::Test
{
protected:
    void Start(DWORD mask)
    {
        RouterSession::SetMask(-1, mask);
        RouterSession::SetMask(3, mask);
        ASSERT_TRUE(session.Activate());
        const std::wstring pipe = support::UniqueName(L"SessionEnd");
        ASSERT_EQ(session.RegisterPort(3, 1, pipe), S_OK);
        ASSERT_TRUE(session.WaitForLog("CCDevicePortPipe::PipeProcessThread Started"));
    }
    static HWND Dialog() { return ::FindWindowW(nullptr, DialogTitle); }
    static HWND DebugWindow()
    {
        support::WaitUntil([] { return ::FindWindowW(DebugWindowClass, nullptr) != nullptr; });
        return ::FindWindowW(DebugWindowClass, nullptr);
    }

    /// As Windows sends it: the answer, or none when the window did not answer in time or is gone.
    static std::optional<DWORD_PTR> Send(HWND window, UINT message, bool ends)
    {
        DWORD_PTR result = 0;
        if (::SendMessageTimeoutW(window, message, ends ? TRUE : FALSE, 0, SMTO_NORMAL, 60'000, &result) == 0) {
            return std::nullopt;
        }
        return result;
    }
    /// What has to be true as soon as the window has answered, when Windows may already end the process.
    void ExpectOrderlyEnd() const
    {
        const std::string log = session.Log();
        std::size_t at = 0;
        for (const char* line :
             {"CCDevicePortPipe::PipeProcessThread Ended", "CommandProcessThread() ended", LogEnd})
        {
            at = log.find(line, at);
            ASSERT_NE(at, std::string::npos) << line << log;
        }
        EXPECT_EQ(log.find("abandoned"), std::string::npos) << log;
        EXPECT_EQ(Dialog(), nullptr);
    }

    RouterSession session{RouterSession::Transport::Simulation};
};

TEST_F(HostSessionEnd, TheDialogAnswersAfterTheRouterHasEnded)
{
    Start(0x003C0000);
    const HWND dialog = Dialog();
    EXPECT_EQ(Send(dialog, WM_QUERYENDSESSION, false), TRUE);
    EXPECT_EQ(Send(dialog, WM_ENDSESSION, true), 0U);
    ExpectOrderlyEnd();
    EXPECT_EQ(session.WaitForEnd(), 0U);
}

TEST_F(HostSessionEnd, TheDebugWindowAnswersAfterTheRouterHasEnded)
{
    Start(0x003C003C);
    const HWND window = DebugWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(Send(window, WM_QUERYENDSESSION, false), TRUE);
    EXPECT_EQ(Send(window, WM_ENDSESSION, true), 0U);
    ExpectOrderlyEnd();
    EXPECT_EQ(session.WaitForEnd(), 0U);
}

TEST_F(HostSessionEnd, ASessionThatGoesOnEndsNothing)
{
    Start(0x003C003C);
    for (const HWND window : {Dialog(), DebugWindow()}) {
        EXPECT_EQ(Send(window, WM_QUERYENDSESSION, false), TRUE);
        EXPECT_EQ(Send(window, WM_ENDSESSION, false), 0U);
    }
    EXPECT_EQ(session.UnregisterPort(3, 1), S_OK) << "the router still serves";
    EXPECT_TRUE(session.WaitForLog("CCDevicePortPipe::PipeProcessThread Ended"));
    EXPECT_EQ(session.Log().find(LogEnd), std::string::npos);
    EXPECT_EQ(::WaitForSingleObject(session.Process(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    session.Release();
    EXPECT_EQ(session.WaitForEnd(), 0U);
}

} // namespace
