// Quiet seconds: the idle packet, the watch over the host programs, writes with none waiting after them.
#include "tests/support/OwnFolder.h"
#include "tests/unit/transport/UsbFixture.h"
#include "win32/ModulePath.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace usbtransport {

constexpr const char* HostGone = "Host application does not exist..So termintating port router...";

class UsbQuiet : public UsbTransport
{
protected:
    UsbQuiet()
    {
        // From here on the test's thread can be posted to.
        MSG message;
        ::PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
    }
    ~UsbQuiet() override
    {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        }
    }
    static bool QuitWasPosted()
    {
        return support::WaitUntil([] {
            MSG message;
            return ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE &&
                   message.message == WM_QUIT;
        });
    }
    /// By the clock of the reply thread, which has nothing to do and says so every second.
    static bool TwoSecondsHavePassed()
    {
        return RecordingTrace::WaitForLine("CCyUSBDriver::ReplyProcessThread()IDLE", support::DefaultTimeout, 2);
    }
    /// A quiet second has passed: what the command thread does in one was done.
    bool AwaitIdlePacket() { return NextFrame() == Frame(nextNumber++, 238, 238, 238, ""); }
};

TEST_F(UsbQuiet, SecondsEachBringAnIdlePacketNumberedFrom0AfterEveryConnect)
{
    Connect();
    EXPECT_TRUE(AwaitIdlePacket());
    EXPECT_TRUE(AwaitIdlePacket());
    ASSERT_NO_FATAL_FAILURE(Reopen());
    EXPECT_TRUE(AwaitIdlePacket()) << "number 0 again";
}

TEST_F(UsbQuiet, SecondsOfAStandaloneRouterNeverEndIt)
{
    host.standalone = true;
    Connect();
    EXPECT_TRUE(AwaitIdlePacket());
    EXPECT_TRUE(host.Asked().empty());
    EXPECT_EQ(RecordingTrace::Count(HostGone), 0u);
}

TEST_F(UsbQuiet, WithTheFirstHostProgramTheSecondIsNotLookedFor)
{
    host.standalone = false;
    host.SetRunning(L"First.exe", true);
    Connect();
    EXPECT_TRUE(AwaitIdlePacket());
    const std::vector<std::wstring> asked = host.Asked();
    ASSERT_FALSE(asked.empty());
    EXPECT_EQ(std::ranges::count(asked, L"First.exe"), static_cast<std::ptrdiff_t>(asked.size()));
}

TEST_F(UsbQuiet, SecondsWithTheSecondHostProgramRunningGoOnUntilItEnds)
{
    host.standalone = false;
    host.SetRunning(L"Second.exe", true);
    Connect();
    EXPECT_TRUE(AwaitIdlePacket());
    const std::vector<std::wstring> asked = host.Asked();
    ASSERT_GE(asked.size(), 2u);
    EXPECT_EQ(asked[0], L"First.exe");
    EXPECT_EQ(asked[1], L"Second.exe");
    EXPECT_EQ(RecordingTrace::Count(HostGone), 0u);
    host.SetRunning(L"Second.exe", false);
    EXPECT_TRUE(RecordingTrace::WaitForLine(HostGone));
    EXPECT_TRUE(QuitWasPosted());
}

TEST_F(UsbQuiet, SecondWithoutAHostProgramEndsTheThreadsAndPostsTheQuit)
{
    host.standalone = false;
    host.SetRunning(L"first.exe", true); // names count to the letter
    host.SetRunning(L"SECOND.EXE", true);
    Connect();
    ASSERT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBCommandProcessThread() ended"));
    EXPECT_TRUE(QuitWasPosted());
    EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() ended"));
    EXPECT_TRUE(TracedInOrder({HostGone, "CCyUSBDriver::USBCommandProcessThread() ended"}));
    EXPECT_EQ(bus.Count(0, Out).begun, 0u) << "no idle packet in that second";
    EXPECT_EQ(bus.Count(0, In).pending, 0u);
    driver.reset(); // with its threads ended already
}

TEST_F(UsbQuiet, SecondsDoNotComeWhileAnInstrumentIsLookedFor)
{
    host.standalone = false;
    Start();
    ASSERT_TRUE(TwoSecondsHavePassed());
    EXPECT_TRUE(host.Asked().empty());
    bus.Plug(0, Instrument());
    EXPECT_TRUE(RecordingTrace::WaitForLine(HostGone));
}

TEST_F(UsbQuiet, SecondsDoNotComeWhileThereIsWorkHoweverLongThatTakes)
{
    host.standalone = false;
    Connect();
    // Each write takes its six busy passes, so these last for seconds.
    bus.SetRule(For(Out, Action::Hold));
    for (int packet = 0; packet < 2'000; ++packet) {
        Send("x");
    }
    ASSERT_TRUE(TwoSecondsHavePassed());
    EXPECT_GT(driver->Queued(), 0);
    EXPECT_TRUE(host.Asked().empty());
    EXPECT_EQ(RecordingTrace::Count(HostGone), 0u);
}

TEST_F(UsbQuiet, WhileFirmwareIsNeededTheSixthSecondAbortsAStuckWrite)
{
    if (support::DoneInOwnFolder()) {
        return;
    }
    const std::filesystem::path folder = win32::FolderOf(*win32::ModulePath()) + L"Firmware";
    std::filesystem::create_directory(folder);
    std::ofstream(folder / "Firmware_256.Out", std::ios::binary) << std::string(100, 'f');
    Connect();
    EXPECT_FALSE(driver->IsReady());
    ASSERT_TRUE(bus.TakeWritten(0, Out)) << "PREPARE_DOWNLOAD, numbered before the numbering begins";
    // The instrument agrees and then takes nothing more. While an image is sent, nothing is sent again.
    bus.SetRule(For(Out, Action::Hold));
    const std::string agreement = "RECEIVE_READY 100 4000";
    Feed(Frame(1, 1, 0, 0, agreement));
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    const std::uint32_t begun = bus.Count(0, Out).begun;
    ASSERT_TRUE(
        RecordingTrace::WaitForLine("CCyUSBDriver::USBCommandProcessThread() IDLE, Number of pending writes: 0"));
    EXPECT_TRUE(driver->IsUpdatingFirmware());
    EXPECT_TRUE(TracedInOrder({
        "CCyUSBDriver::USBCommandProcessThread() IDLE,  WARNING: Write operation incomplete (TotalAborted=1)",
        "CCyUSBDriver::USBCommandProcessThread() IDLE, Number of pending writes: 0",
    }));
    EXPECT_EQ(bus.Count(0, Out).endpointAborts, 1u);
    EXPECT_EQ(bus.Count(0, Out).begun, begun) << "six quiet seconds and not one idle packet";
    EXPECT_EQ(RecordingTrace::Count("previous Write operation"), 0u);
}

} // namespace usbtransport
