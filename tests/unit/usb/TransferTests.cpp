// Transfers as the transport makes them: bulk, direct, overlapped.
#include "tests/unit/usb/UsbFixture.h"

namespace usbtest {

// NT statuses the simulated driver is told to answer, and what Windows makes of them.
constexpr std::uint32_t StatusIoDeviceError = 0xC0000185;
constexpr std::uint32_t StatusWithoutError = 0xC0010000; // carries the error code 0 in its low half
constexpr std::uint32_t UsbdStallPid = 0xC0000004;

class Transfers : public UsbTest
{
protected:
    bool Read(usb::BulkTransfer& transfer, std::uint32_t length = 65'535)
    {
        return transfer.BeginRead(*Endpoint(In), length);
    }
    static Bytes Received(usb::BulkTransfer& transfer, std::uint32_t length)
    {
        const auto bytes = transfer.Received().first(length);
        return Bytes(bytes.begin(), bytes.end());
    }

    usb::BulkTransfer write;
    usb::BulkTransfer read;
};

TEST_F(Transfers, AWriteReachesTheInstrumentWholeAndReportsItsLength)
{
    Connect();
    for (std::size_t size : {1u, 14u, 512u, 4'014u, 65'549u}) {
        ASSERT_TRUE(Write(write, Pattern(size)));
        EXPECT_TRUE(write.IsUnderWay());
        const Outcome outcome = End(write);
        EXPECT_TRUE(outcome.worked);
        EXPECT_EQ(outcome.length, size);
        EXPECT_EQ(outcome.lastError, 0u);
        EXPECT_FALSE(write.IsUnderWay());
        const auto written = bus.TakeWritten(0, Out);
        ASSERT_TRUE(written);
        EXPECT_EQ(written->bytes, Pattern(size));
    }
    EXPECT_EQ(Endpoint(Out)->BytesTransferred(), 65'549u);
}

TEST_F(Transfers, AWriteOfNothingWorks)
{
    Connect();
    ASSERT_TRUE(Write(write, {}));
    EXPECT_TRUE(End(write).worked);
    EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Bytes{});
}

TEST_F(Transfers, WritesKeepTheirOrder)
{
    Connect();
    for (std::uint8_t i = 0; i < 50; ++i) {
        ASSERT_TRUE(Write(write, {i}));
        ASSERT_TRUE(End(write).worked);
    }
    for (std::uint8_t i = 0; i < 50; ++i) {
        EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Bytes{i});
    }
}

TEST_F(Transfers, AReadWaitsForTheInstrumentAndReportsTheBytesThatArrived)
{
    Connect();
    for (std::size_t size : {1u, 15u, 511u, 512u, 513u, 40'000u, 65'534u}) {
        ASSERT_TRUE(Read(read));
        EXPECT_FALSE(read.HasEnded());
        bus.Feed(0, In, Pattern(size));
        const Outcome outcome = End(read);
        EXPECT_TRUE(outcome.worked);
        ASSERT_EQ(outcome.length, size);
        EXPECT_EQ(Received(read, outcome.length), Pattern(size));
        EXPECT_EQ(Endpoint(In)->BytesTransferred(), size);
    }
}

TEST_F(Transfers, AFullReadHas65535BytesAndRoomForOneAfterThem)
{
    Connect();
    ASSERT_TRUE(Read(read));
    bus.Feed(0, In, Pattern(65'535));
    const Outcome outcome = End(read);
    EXPECT_TRUE(outcome.worked);
    ASSERT_EQ(outcome.length, 65'535u);
    EXPECT_EQ(Received(read, outcome.length), Pattern(65'535));
    EXPECT_GE(read.Received().size(), 65'536u);
}

TEST_F(Transfers, MoreThanOneReadHoldsComesInTheNext)
{
    Connect();
    bus.Feed(0, In, Pattern(70'000));
    ASSERT_TRUE(Read(read));
    EXPECT_EQ(End(read).length, 65'535u);
    ASSERT_TRUE(Read(read));
    EXPECT_EQ(End(read).length, 70'000u - 65'535u);
}

TEST_F(Transfers, AReadThatBringsNothingReportsZeroBytes)
{
    Connect();
    ASSERT_TRUE(Read(read));
    bus.Feed(0, In, {});
    const Outcome outcome = End(read);
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 0u);
}

TEST_F(Transfers, AShortenedWriteReportsWhatTheDriverTook)
{
    Connect();
    Rule rule = For(Out, Action::Shorten);
    rule.length = 10;
    bus.SetRule(rule);
    ASSERT_TRUE(Write(write, Pattern(64)));
    const Outcome outcome = End(write);
    EXPECT_TRUE(outcome.worked);
    EXPECT_EQ(outcome.length, 10u);
}

TEST_F(Transfers, AFailedTransferKeepsTheLastError)
{
    Connect();
    Rule rule = For(In, Action::Fail);
    rule.status = StatusIoDeviceError;
    rule.count = 1;
    bus.SetRule(rule);
    ASSERT_TRUE(Read(read));
    const Outcome outcome = End(read);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_IO_DEVICE});
    EXPECT_EQ(outcome.length, 0u);
    EXPECT_EQ(Endpoint(In)->LastError(), DWORD{ERROR_IO_DEVICE});
    EXPECT_FALSE(read.IsUnderWay());

    ASSERT_TRUE(Read(read)) << "the next one is unharmed";
    bus.Feed(0, In, Pattern(3));
    EXPECT_TRUE(End(read).worked);
    EXPECT_EQ(Endpoint(In)->LastError(), 0u);
}

TEST_F(Transfers, AFailureWithoutAnErrorOfWindowsLeavesTheLastErrorZero)
{
    Connect();
    Rule rule = For(Out, Action::Fail);
    rule.status = StatusWithoutError;
    bus.SetRule(rule);
    ASSERT_TRUE(Write(write, Pattern(4)));
    ::SetLastError(ERROR_GEN_FAILURE);
    const Outcome outcome = End(write);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, 0u);
}

TEST_F(Transfers, ATransferThatIsRefusedAtOnceEndsAtOnceWithTheReason)
{
    Connect();
    Rule rule = For(Out, Action::Refuse);
    rule.status = StatusIoDeviceError;
    bus.SetRule(rule);
    ASSERT_TRUE(Write(write, Pattern(4))) << "there is a context nevertheless";
    EXPECT_TRUE(write.HasEnded());
    const Outcome outcome = End(write);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, DWORD{ERROR_IO_DEVICE});
}

TEST_F(Transfers, ARefusalWithoutAnErrorOfWindowsEndsAtOnceToo)
{
    Connect();
    Rule rule = For(In, Action::Refuse);
    rule.status = StatusWithoutError;
    bus.SetRule(rule);
    ASSERT_TRUE(Read(read));
    const Outcome outcome = End(read);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, 0u);
}

TEST_F(Transfers, ABadStatusAloneFailsABufferedTransferWithAnErrorOfWindows)
{
    Connect();
    Endpoint(In)->SetDirect(false);
    Rule rule = For(In, Action::Statuses);
    rule.ntStatus = StatusIoDeviceError;
    rule.usbdStatus = UsbdStallPid;
    rule.count = 1;
    bus.SetRule(rule);
    bus.Feed(0, In, Pattern(5));
    ASSERT_TRUE(Read(read));
    ::SetLastError(ERROR_SUCCESS);
    const Outcome outcome = End(read);
    EXPECT_FALSE(outcome.worked);
    EXPECT_EQ(outcome.lastError, static_cast<DWORD>(ERROR_GEN_FAILURE));
    EXPECT_EQ(outcome.length, 5u);
    EXPECT_EQ(Endpoint(In)->NtStatus(), StatusIoDeviceError);
    EXPECT_EQ(Endpoint(In)->UsbdStatus(), UsbdStallPid);
}

TEST_F(Transfers, EitherStatusAloneIsEnoughToFail)
{
    Connect();
    Endpoint(In)->SetDirect(false);
    for (const bool nt : {true, false}) {
        Rule rule = For(In, Action::Statuses);
        (nt ? rule.ntStatus : rule.usbdStatus) = UsbdStallPid;
        bus.SetRule(rule);
        bus.Feed(0, In, Pattern(5));
        ASSERT_TRUE(Read(read));
        EXPECT_FALSE(End(read).worked);
        bus.Release(0);
    }
}

TEST_F(Transfers, BufferedTransfersCarryTheSameBytes)
{
    Connect();
    Endpoint(In)->SetDirect(false);
    Endpoint(Out)->SetDirect(false);
    for (std::size_t size : {0u, 1u, 700u, 60'000u}) {
        ASSERT_TRUE(Write(write, Pattern(size)));
        const Outcome wrote = End(write);
        EXPECT_TRUE(wrote.worked);
        EXPECT_EQ(wrote.length, size);
        EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Pattern(size));
        ASSERT_TRUE(Read(read));
        bus.Feed(0, In, Pattern(size, 9));
        const Outcome got = End(read);
        EXPECT_TRUE(got.worked);
        ASSERT_EQ(got.length, size);
        EXPECT_EQ(Received(read, got.length), Pattern(size, 9));
    }
}

TEST_F(Transfers, AReadAndAWriteMayBePendingTogether)
{
    Connect();
    ASSERT_TRUE(Read(read));
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(Write(write, Pattern(20)));
    bus.Feed(0, In, Pattern(30));
    EXPECT_EQ(End(read).length, 30u);
    EXPECT_FALSE(write.HasEnded());
    bus.Release(0, Out);
    EXPECT_EQ(End(write).length, 20u);
}

TEST_F(Transfers, ADelayedTransferEndsWhenItsTimeHasCome)
{
    Connect();
    Rule rule = For(Out, Action::Delay);
    rule.milliseconds = 100;
    bus.SetRule(rule);
    const ULONGLONG begin = ::GetTickCount64();
    ASSERT_TRUE(Write(write, Pattern(1)));
    EXPECT_FALSE(write.HasEnded());
    EXPECT_TRUE(End(write).worked);
    EXPECT_GE(::GetTickCount64() - begin, 90u) << "ticks are coarse";
}

TEST_F(Transfers, OnAClosedDeviceNothingBegins)
{
    usb::EndpointDescriptor descriptor;
    descriptor.address = Out;
    CCyBulkEndPoint closed(INVALID_HANDLE_VALUE, descriptor);
    OVERLAPPED overlapped{};
    EXPECT_EQ(closed.BeginDataXfer(nullptr, 0, &overlapped), nullptr);
    EXPECT_FALSE(read.BeginRead(closed, 100));
    EXPECT_FALSE(read.IsUnderWay());
    EXPECT_FALSE(closed.Abort());
}

TEST_F(Transfers, FinishBeforeTheEndSaysSoAndTakesNothingAway)
{
    Connect();
    ASSERT_TRUE(Read(read));
    std::uint32_t length = 0;
    EXPECT_FALSE(read.Finish(length));
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_IO_INCOMPLETE});
    EXPECT_TRUE(read.IsUnderWay());
    bus.Feed(0, In, Pattern(6));
    EXPECT_EQ(End(read).length, 6u);
}

TEST_F(Transfers, TheContextOfTheEndpointItselfIsFinishedByTheCaller)
{
    Connect();
    const win32::Event event(win32::Event::Kind::ManualReset);
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.Get();
    Bytes buffer(1'000);
    usb::RequestBlock* const context = Endpoint(In)->BeginDataXfer(buffer.data(), 1'000, &overlapped);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(Endpoint(In)->LastError(), DWORD{ERROR_IO_PENDING});
    bus.Feed(0, In, Pattern(77));
    ASSERT_TRUE(support::WaitFor(event.Get()));
    std::uint32_t length = 1'000;
    EXPECT_TRUE(Endpoint(In)->FinishDataXfer(buffer.data(), length, &overlapped, context));
    EXPECT_EQ(length, 77u);
    buffer.resize(77);
    EXPECT_EQ(buffer, Pattern(77));
}

TEST_F(Transfers, FinishWithoutAContextFails)
{
    Connect();
    OVERLAPPED overlapped{};
    std::uint32_t length = 5;
    EXPECT_FALSE(Endpoint(Out)->FinishDataXfer(nullptr, length, &overlapped, nullptr));
    EXPECT_EQ(length, 0u);
}

} // namespace usbtest
