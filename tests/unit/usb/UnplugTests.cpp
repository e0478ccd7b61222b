// The instrument goes away: idle, while it is written to, while it is read, and comes back.
#include "tests/unit/usb/UsbFixture.h"

namespace usbtest {

class Unplug : public UsbTest
{
protected:
    usb::BulkTransfer write;
    usb::BulkTransfer read;
};

TEST_F(Unplug, InMidReadEndsItWithAnError)
{
    Connect();
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 65'535));
    bus.Unplug(0);
    const Outcome outcome = End(read);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    EXPECT_EQ(outcome.length, 0u);
}

TEST_F(Unplug, InMidWriteEndsItWithAnError)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(Write(write, Pattern(100)));
    bus.Unplug(0);
    const Outcome outcome = End(write);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
}

TEST_F(Unplug, WhileIdleMakesTheNextTransferFailAtOnce)
{
    Connect();
    bus.Unplug(0);
    ASSERT_TRUE(Write(write, Pattern(1)));
    EXPECT_EQ(End(write).lastError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 100));
    EXPECT_EQ(End(read).lastError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    EXPECT_FALSE(Endpoint(Out)->Abort());
    EXPECT_NO_THROW(device.ResetParentPort());
}

TEST_F(Unplug, TakesTheInstrumentOutOfTheCountAndPluggingBringsItBack)
{
    Connect();
    bus.Unplug(0);
    EXPECT_EQ(device.DeviceCount(), 0);
    bus.Plug(0, Instrument());
    EXPECT_EQ(device.DeviceCount(), 1);
}

TEST_F(Unplug, LeavesTheOldHandleDeadWhenTheInstrumentIsBack)
{
    Connect();
    bus.Unplug(0);
    bus.Plug(0, Instrument());
    ASSERT_TRUE(Write(write, Pattern(1)));
    EXPECT_EQ(End(write).lastError, DWORD{ERROR_DEVICE_NOT_CONNECTED});
    ASSERT_TRUE(device.Open(0));
    ASSERT_TRUE(Write(write, Pattern(2)));
    EXPECT_TRUE(End(write).worked);
    EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Pattern(2));
}

TEST_F(Unplug, AfterAnAbortLeavesNothingBehind)
{
    Connect();
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 100));
    bus.Unplug(0);
    read.Abort();
    EXPECT_EQ(Endpoint(In)->Abandoned().Count(), 0u);
}

TEST_F(Unplug, AndPlugAHundredTimesInMidTransferKeepsHandlesFlat)
{
    const auto round = [&] {
        bus.Plug(0, Instrument());
        ASSERT_TRUE(device.Open(0));
        ASSERT_TRUE(read.BeginRead(*Endpoint(In), 65'535));
        bus.SetRule(For(Out, Action::Hold));
        ASSERT_TRUE(Write(write, Pattern(64)));
        bus.Unplug(0);
        EXPECT_FALSE(End(read).worked);
        write.Abort();
        bus.Release(0);
        device.Close();
    };
    for (int i = 0; i < 10; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    DWORD before = 0;
    DWORD after = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &before);
    for (int i = 0; i < 100; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    ::GetProcessHandleCount(::GetCurrentProcess(), &after);
    EXPECT_LE(after, before);
}

} // namespace usbtest
