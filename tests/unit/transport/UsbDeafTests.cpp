// A driver that keeps requests although they were aborted and cancelled: nothing waits for it for long.
#include "tests/unit/transport/UsbFixture.h"
#include "usb/ControlCodes.h"

namespace usbtransport {

constexpr std::uint32_t Deaf = Action::Hold | Action::Stubborn;

/// As a test on a machine under load takes it; far below the 12 s of a request without an answer.
constexpr ULONGLONG SoonMs = 9'000;

class UsbDeaf : public UsbTransport
{
protected:
    ~UsbDeaf() override
    {
        bus.Release(0); // no test leaves requests behind for the next one
    }
    ULONGLONG TimeOfTheEnd()
    {
        const ULONGLONG begin = ::GetTickCount64();
        driver.reset();
        return ::GetTickCount64() - begin;
    }
};

TEST_F(UsbDeaf, ReadsAndAbortsThatAreKeptDoNotKeepTheTransportFromItsEnd)
{
    bus.SetRule(For(In, Deaf));
    bus.SetRule(For(Out, Deaf));
    Connect();
    Send("kept");
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    bus.SetRule(ForControl(usb::ControlAbortPipe, Deaf));
    bus.SetRule(ForControl(usb::ControlResetParentPort, Deaf));
    EXPECT_LT(TimeOfTheEnd(), SoonMs);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBReadWaitThread() ended"), 1u);
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBCommandProcessThread() ended"), 1u);
    EXPECT_EQ(bus.Count(0, In).held + bus.Count(0, Out).held, 2u) << "the driver has them still";
}

TEST_F(UsbDeaf, AControlThatIsKeptInTheConnectProcedureIsCutShortByTheEnd)
{
    Connect();
    bus.SetRule(ForControl(usb::ControlResetParentPort, Deaf));
    driver->Reconnect();
    ASSERT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.controlsHeld == 1; }));
    EXPECT_LT(TimeOfTheEnd(), SoonMs);
}

TEST_F(UsbDeaf, AReadThatIsKeptDoesNotKeepTheTransportFromReconnecting)
{
    Rule kept = For(In, Deaf, 1);
    bus.SetRule(kept);
    Connect();
    driver->Reconnect();
    ASSERT_NO_FATAL_FAILURE(AwaitLoss());
    ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB opened", support::DefaultTimeout, 2));
    // The first read is the driver's still, the second one is served.
    ASSERT_TRUE(bus.WaitFor(0, In, [](const Counters& c) { return c.pending == 2; }));
    EXPECT_EQ(bus.Count(0, In).held, 1u);
    Feed(Frame(1, 1, 3, 1, "for the second"));
    EXPECT_TRUE(Delivered(1, "for the second"));
}

} // namespace usbtransport
