// The instrument goes away at any moment and comes back.
#include "tests/unit/transport/UsbFixture.h"
#include "usb/ControlCodes.h"

#include <cstdio>

namespace usbtransport {

class UsbUnplug : public UsbTransport
{
protected:
    /// Plugs the instrument in again and sees that it is served as on the first day.
    void PlugAndSeeItServed()
    {
        bus.Plug(0, Instrument());
        ASSERT_NO_FATAL_FAILURE(AwaitConnection());
        const std::size_t deliveries = host.Deliveries().size();
        Send("served again");
        ASSERT_TRUE(NextIs("served again")) << "numbers begin with 0";
        Feed(Frame(1, 1, 3, 1, "answered"));
        ASSERT_TRUE(Delivered(deliveries + 1, "answered"));
    }
    static DWORD Handles()
    {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    }
};

TEST_F(UsbUnplug, WhileIdleIsNoticedByThePendingReadAndServedAgain)
{
    Connect();
    Send("before");
    EXPECT_TRUE(NextIs("before"));
    const int signals = host.signals;
    ASSERT_NO_FATAL_FAILURE(Lose());
    EXPECT_EQ(RecordingTrace::Count("Reply-receive failed(1167), reconnecting..."), 1u);
    EXPECT_FALSE(driver->IsConnected());
    EXPECT_FALSE(driver->IsReady());
    EXPECT_GE(host.signals, signals + 2) << "at the failure and in the connect procedure";
    Send("lost");
    EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::Submit() No connection, ignore all incomcing  requests"), 1u);
    EXPECT_EQ(driver->Queued(), 0);
    PlugAndSeeItServed();
}

TEST_F(UsbUnplug, InMidWriteLosesThatPacketOnly)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    Send("in mid-write");
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    ASSERT_NO_FATAL_FAILURE(Lose());
    EXPECT_EQ(bus.Count(0, Out).pending, 0u);
    bus.Release(0);
    PlugAndSeeItServed();
}

TEST_F(UsbUnplug, KeepsQueuedPacketsAndTheirNumbersForTheNextConnection)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    for (int packet = 0; packet < 100; ++packet) {
        Send(std::to_string(packet));
    }
    ASSERT_NO_FATAL_FAILURE(Lose());
    const std::int32_t left = driver->Queued();
    ASSERT_GT(left, 0);
    bus.Release(0);
    bus.Plug(0, Instrument());
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("new");
    for (int packet = 100 - left; packet < 100; ++packet) {
        nextNumber = static_cast<std::uint8_t>(packet);
        ASSERT_TRUE(NextIs(std::to_string(packet)));
    }
    nextNumber = 0;
    EXPECT_TRUE(NextIs("new"));
}

TEST_F(UsbUnplug, InMidPacketKeepsItsFirstPartForTheRest)
{
    Connect();
    const std::string frame = Frame(1, 1, 3, 1, "in two parts");
    Feed(frame.substr(0, 17));
    ASSERT_TRUE(RecordingTrace::WaitForLine("ApppendToReplyProcessQueue() 17 bytes"));
    ASSERT_NO_FATAL_FAILURE(Lose());
    bus.Plug(0, Instrument());
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Feed(frame.substr(17));
    EXPECT_TRUE(Delivered(1, "in two parts"));
}

TEST_F(UsbUnplug, InMidReadEndsTheReadThreadUntilTheNextConnection)
{
    bus.SetRule(For(In, Action::Hold)); // no read brings anything
    Connect();
    for (std::size_t round = 1; round <= 3; ++round) {
        ASSERT_TRUE(bus.WaitFor(0, In, [](const Counters& c) { return c.held == 1; }));
        ASSERT_NO_FATAL_FAILURE(Lose());
        EXPECT_EQ(RecordingTrace::Count("Reply-receive failed(1167), reconnecting..."), round)
            << "its own read failed";
        EXPECT_TRUE(RecordingTrace::WaitForLine("CCyUSBDriver::USBReadWaitThread() ended", support::DefaultTimeout,
                                                round));
        bus.Plug(0, Instrument());
        ASSERT_NO_FATAL_FAILURE(AwaitConnection());
        EXPECT_EQ(RecordingTrace::Count("CCyUSBDriver::USBReadWaitThread() started"), round + 1);
    }
    bus.Release(0);
    Feed(Frame(1, 1, 3, 1, "read by the last"));
    EXPECT_TRUE(Delivered(1, "read by the last"));
}

TEST_F(UsbUnplug, DuringTheConnectProcedureMakesItFailAndTheNextOneServe)
{
    // Each of the questions of the procedure in turn is the one at which the instrument is unplugged.
    for (const std::uint32_t control :
         {usb::ControlEndpointZero, usb::ControlFriendlyName, usb::ControlBusSpeed, usb::ControlAlternateSetting})
    {
        SCOPED_TRACE(control);
        if (!driver) {
            Start();
        } else {
            ASSERT_NO_FATAL_FAILURE(Lose());
        }
        bus.SetRule(ForControl(control, Action::Hold));
        bus.Plug(0, Instrument());
        ASSERT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.controlsHeld == 1; }));
        const std::size_t failed = RecordingTrace::Count("Connection to USB failed");
        bus.Unplug(0);
        ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB failed", support::DefaultTimeout, failed + 1));
        EXPECT_FALSE(driver->IsConnected());
        bus.Release(0);
        PlugAndSeeItServed();
    }
}

TEST_F(UsbUnplug, JustAfterItWasOpenedIsNoticedByTheFirstRead)
{
    Start();
    for (std::size_t round = 1; round <= 5; ++round) {
        bus.Plug(0, Instrument());
        ASSERT_TRUE(RecordingTrace::WaitForLine("Connection to USB opened", support::DefaultTimeout, round));
        bus.Unplug(0);
        ASSERT_TRUE(support::WaitUntil([&] { return !driver->IsConnected(); }));
    }
    PlugAndSeeItServed();
}

TEST_F(UsbUnplug, OfOneOfTwoInstrumentsMovesThePortsToTheOther)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, Instrument());
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    Send("to the second");
    EXPECT_TRUE(NextIs("to the second", 1));
    bus.Unplug(1);
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(0));
    Send("to the first");
    EXPECT_TRUE(NextIs("to the first", 0));
}

TEST_F(UsbUnplug, OfAnInstrumentThatIsNotServedDisturbsNoOther)
{
    bus.Plug(0, Instrument());
    bus.Plug(1, Instrument());
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitConnection(1));
    bus.Unplug(0);
    Send("still served");
    EXPECT_TRUE(NextIs("still served", 1));
    Feed(Frame(1, 1, 3, 1, "and answered"), 1);
    EXPECT_TRUE(Delivered(1, "and answered"));
    EXPECT_EQ(RecordingTrace::Count("reconnecting"), 0u);
}

TEST_F(UsbUnplug, TwentyTimesInMidWriteAndMidReadLeavesNoHandleBehind)
{
    Connect();
    const auto round = [&] {
        bus.SetRule(For(Out, Action::Hold));
        Send("in mid-write");
        Feed(Frame(1, 1, 3, 1, "a whole packet") + "## and a part of one");
        ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
        ASSERT_NO_FATAL_FAILURE(Lose());
        bus.Release(0);
        bus.Plug(0, Instrument());
        ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    };
    for (int i = 0; i < 5; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    const DWORD before = Handles();
    for (int i = 0; i < 20; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    RecordProperty("handles", std::to_string(before) + " to " + std::to_string(Handles()));
    EXPECT_LE(Handles(), before);
    EXPECT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.opens == c.closes + 1; }));
}

} // namespace usbtransport
