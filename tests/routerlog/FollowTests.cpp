// The built RouterLog, following a log that the product's code writes and rotates.
#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"
#include "tests/support/UniqueName.h"
#include "tools/RouterLog/report/Sentences.h"

#include "diag/LogFile.h"

#include <gtest/gtest.h>

namespace {

class Follow : public testing::Test
{
protected:
    bool Shows(const std::string& text)
    {
        return support::WaitUntil([&] { return router.Output().find(text) != std::string::npos; });
    }

    support::TempFolder folder;
    std::filesystem::path path = folder.Path() / L"MorvanePortRouter.log";
    std::wstring stopName = support::UniqueName(L"FollowStop");
    win32::KernelHandle stop{::CreateEventW(nullptr, TRUE, FALSE, stopName.c_str())};
    support::ChildProcess router{support::ProgramFolder() / L"RouterLog.exe",
                                 L"follow \"" + folder.Path().wstring() + L"\" --every 0.1 --stop-event " +
                                     stopName};
};

TEST_F(Follow, ShowsTheStateThroughARotationAndEndsWhenAsked)
{
    ASSERT_TRUE(Shows("Waiting for")) << router.Output();
    LogFile log;
    log.Open(path, true);
    log.WriteLine("[11-21-26 21:14:05:0042] CCyUSBDriver::USBCommandProcessThread() started", 1U << 30);
    log.WriteLine("[11-21-26 21:14:06:0042] Connection to USB opened, BULK IN on Pipe 2 and OUT on Pipe 1",
                  1U << 30);
    ASSERT_TRUE(Shows("The instrument is connected since 2026-11-21 21:14:06.042.")) << router.Output();
    log.WriteLine("[11-21-26 21:14:07:0000] Reply-receive failed(31), reconnecting...", 0);
    log.WriteLine("[11-21-26 21:14:07:0001] CCyUSBDriver::NotifyState(Not Connected)", 1U << 30);
    ASSERT_TRUE(Shows("The instrument was unplugged or went away")) << router.Output();
    log.Close();
    ::SetEvent(stop.Get());
    EXPECT_EQ(router.WaitForExit(), 0U);
}

TEST_F(Follow, LosesNoLineOverTenRotations)
{
    constexpr int Rotations = 10;
    constexpr int LinesBetween = 500;
    const std::string text = "[11-21-26 21:14:05:0042] CCyUSBDriver::ReplyProcessThread()IDLE";
    LogFile log;
    log.Open(path, true);
    int lines = 1; // that the log begins
    ASSERT_TRUE(Shows(" 1 lines, ")) << router.Output();
    for (int rotation = 0; rotation < Rotations; ++rotation) {
        for (int line = 0; line < LinesBetween; ++line) {
            log.WriteLine(text, line == LinesBetween / 2 ? 0 : 1U << 30);
        }
        lines += LinesBetween + 2; // two say that the log goes on in another file
        ASSERT_TRUE(Shows(routerlog::Grouped(lines) + " lines, ")) << router.Output();
    }
    log.Close();
    ::SetEvent(stop.Get());
    EXPECT_EQ(router.WaitForExit(), 0U);
}

} // namespace
