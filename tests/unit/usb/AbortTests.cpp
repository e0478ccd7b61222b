// Aborted transfers: the driver may release them late, or never, and must never write into memory in other
// hands.
#include "tests/support/AllocationCount.h"
#include "tests/support/PatchedImport.h"
#include "tests/unit/usb/UsbFixture.h"
#include "usb/ControlCodes.h"

namespace usbtest {

class Aborts : public UsbTest
{
protected:
    /// Makes the driver answer aborts without aborting anything.
    void IgnoreAborts()
    {
        Rule rule = ForControl(usb::ControlAbortPipe, Action::Refuse);
        rule.status = 0xC0000010;
        bus.SetRule(rule);
    }

    static DWORD Handles()
    {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    }

    usb::BulkTransfer write;
    usb::BulkTransfer read;
};

TEST_F(Aborts, OnAnIdleEndpointIsHarmless)
{
    Connect();
    EXPECT_TRUE(Endpoint(Out)->Abort());
    EXPECT_TRUE(Endpoint(In)->Abort());
    EXPECT_EQ(bus.Count(0).aborts, 2u);
    EXPECT_EQ(bus.Count(0, In).endpointAborts, 1u);
    ASSERT_TRUE(Write(write, Pattern(10)));
    EXPECT_TRUE(End(write).worked);
}

TEST_F(Aborts, OnAnIdleEndpointIsHarmlessWhenTheDriverRefuses)
{
    Connect();
    IgnoreAborts();
    EXPECT_FALSE(Endpoint(Out)->Abort());
    ASSERT_TRUE(Write(write, Pattern(10)));
    EXPECT_TRUE(End(write).worked);
}

HANDLE WINAPI RefuseEvent(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR)
{
    return nullptr;
}

TEST_F(Aborts, WithoutAnEventAreNotAsked)
{
    Connect();
    {
        const support::PatchedImport patch("CreateEventW", reinterpret_cast<void*>(RefuseEvent));
        EXPECT_FALSE(Endpoint(Out)->Abort());
        EXPECT_EQ(::GetLastError(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
    }
    EXPECT_EQ(bus.Count(0).aborts, 0u);
    EXPECT_TRUE(Endpoint(Out)->Abort());
    EXPECT_EQ(bus.Count(0).aborts, 1u);
}

TEST_F(Aborts, OfATransferObjectWithoutATransferReachNoDriver)
{
    Connect();
    write.Abort();
    write.Abandon();
    EXPECT_EQ(bus.Count(0).aborts, 0u);
}

TEST_F(Aborts, EndOnlyTheTransfersOfTheirEndpoint)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(Write(write, Pattern(10)));
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 100));
    write.Abort();
    EXPECT_FALSE(write.IsUnderWay());
    EXPECT_EQ(bus.Count(0, In).pending, 1u);
    bus.Feed(0, In, Pattern(7));
    EXPECT_EQ(End(read).length, 7u);
}

TEST_F(Aborts, OfAWriteHeldForeverLetTheNextOneGoAtOnce)
{
    Connect();
    Rule rule = For(Out, Action::Hold);
    rule.count = 1;
    bus.SetRule(rule);
    ASSERT_TRUE(Write(write, Pattern(10)));
    EXPECT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    write.Abort();
    ASSERT_TRUE(Write(write, Pattern(11)));
    EXPECT_EQ(End(write).length, 11u);
    EXPECT_EQ(bus.TakeWritten(0, Out)->bytes, Pattern(11)) << "the aborted one never went out";
}

TEST_F(Aborts, KeepTheEventHandle)
{
    Connect();
    const HANDLE event = read.EventHandle();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(read.BeginRead(*Endpoint(In), 100));
        EXPECT_EQ(read.EventHandle(), event);
        read.Abort();
        EXPECT_EQ(read.EventHandle(), event);
    }
}

TEST_F(Aborts, IgnoredByTheDriverKeepTheWholeTransferUntilItsEnd)
{
    Connect();
    IgnoreAborts();
    Rule late = For(Out, Action::Delay);
    late.count = 1;
    late.milliseconds = 300;
    bus.SetRule(late);
    bus.SetRule(For(Out, Action::Hold)); // all further ones
    ASSERT_TRUE(Write(write, Pattern(10)));
    write.Abort();
    EXPECT_FALSE(write.IsUnderWay());
    EXPECT_EQ(Endpoint(Out)->Abandoned().Count(), 1u);

    // The next one is pending when the first one's late completion comes: its event is set, but it has not
    // ended.
    ASSERT_TRUE(Write(write, Pattern(20)));
    ASSERT_TRUE(support::WaitFor(write.EventHandle())) << "the late completion sets the common event";
    EXPECT_FALSE(write.HasEnded());
    write.ResetEvent();

    bus.Release(0);
    EXPECT_EQ(End(write).length, 20u);
    // The parked one is freed when the next one is abandoned.
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(Write(write, Pattern(30)));
    write.Abort();
    EXPECT_EQ(Endpoint(Out)->Abandoned().Count(), 0u);
}

TEST_F(Aborts, OfAReadKeepItsBufferOutOfOtherHands)
{
    Connect();
    IgnoreAborts();
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 1'000));
    read.Abort();
    EXPECT_EQ(Endpoint(In)->Abandoned().Count(), 1u);
    ASSERT_TRUE(read.BeginRead(*Endpoint(In), 1'000));
    // The driver answers the abandoned read first, then the living one: two different buffers.
    bus.Feed(0, In, Pattern(100, 1));
    bus.Feed(0, In, Pattern(200, 2));
    ASSERT_TRUE(support::WaitUntil([&] { return read.HasEnded(); }));
    std::uint32_t length = 0;
    ASSERT_TRUE(read.Finish(length));
    ASSERT_EQ(length, 200u);
    const auto bytes = read.Received().first(length);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), Pattern(200, 2));
}

TEST_F(Aborts, AreWaitedForWhenTheDeviceCloses)
{
    Connect();
    IgnoreAborts();
    std::vector<std::unique_ptr<usb::BulkTransfer>> reads;
    for (int i = 0; i < 10; ++i) {
        reads.push_back(std::make_unique<usb::BulkTransfer>());
        ASSERT_TRUE(reads.back()->BeginRead(*Endpoint(In), 4'096));
        reads.back()->Abort();
    }
    EXPECT_EQ(Endpoint(In)->Abandoned().Count(), 10u);
    EXPECT_EQ(bus.Count(0, In).pending, 10u);
    reads.clear(); // their events are closed before the driver has released the transfers
    device.Close();
    EXPECT_EQ(bus.Count(0, In).pending, 0u) << "cancelled";
}

TEST_F(Aborts, ThatADriverNeverHeedsDoNotKeepTheDeviceFromClosing)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold | Action::Stubborn));
    ASSERT_TRUE(Write(write, Pattern(10)));
    write.Abort();
    EXPECT_EQ(Endpoint(Out)->Abandoned().Count(), 1u);
    const ULONGLONG begin = ::GetTickCount64();
    device.Close();
    EXPECT_LT(::GetTickCount64() - begin, 10'000u);
    EXPECT_FALSE(device.IsOpen());
    EXPECT_EQ(device.KeptByDrivers(), 1u);
    bus.Release(0); // now the driver completes it, in memory that was not reused
    ASSERT_TRUE(device.Open(0));
    ASSERT_TRUE(Write(write, Pattern(5)));
    EXPECT_TRUE(End(write).worked);
}

TEST_F(Aborts, ByTheThousandLeaveNoHandleAndNoMemoryBehind)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    const auto round = [&] {
        ASSERT_TRUE(read.BeginRead(*Endpoint(In), 65'535));
        ASSERT_TRUE(Write(write, Pattern(100)));
        read.Abort();
        write.Abort();
    };
    for (int i = 0; i < 100; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    const DWORD handles = Handles();
    const std::size_t blocks = LiveAllocations();
    for (int i = 0; i < 2'500; ++i) {
        ASSERT_NO_FATAL_FAILURE(round());
    }
    RecordProperty("handles", std::to_string(handles) + " to " + std::to_string(Handles()));
    RecordProperty("blocks", std::to_string(blocks) + " to " + std::to_string(LiveAllocations()));
    EXPECT_LE(Handles(), handles);
    // Counted, because the size of a process moves by megabytes: one lost block in a round would be 2,500. The
    // last transfer of each endpoint may or may not have been released.
    EXPECT_LE(LiveAllocations(), blocks + 20);
    EXPECT_EQ(bus.Count(0, In).endpointAborts, 2'600u);
    EXPECT_EQ(bus.Count(0, Out).endpointAborts, 2'600u);
    EXPECT_EQ(bus.Count(0, In).pending + bus.Count(0, Out).pending, 0u);
}

TEST_F(Aborts, ThatTheDriverIsSlowToHeedDoNotPileUp)
{
    Connect();
    device.Close();
    const std::size_t blocks = LiveAllocations();
    Connect();
    IgnoreAborts();
    std::size_t most = 0;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(read.BeginRead(*Endpoint(In), 65'535));
        read.Abort();
        most = std::max(most, Endpoint(In)->Abandoned().Count());
        if (i % 10 == 9) {
            // Ten blocks end the ten that are waiting.
            for (int block = 0; block < 10; ++block) {
                bus.Feed(0, In, Pattern(3));
            }
            ASSERT_TRUE(bus.WaitFor(0, In, [](const Counters& c) { return c.pending == 0; }));
        }
    }
    EXPECT_LE(most, 11u);
    device.Close();
    EXPECT_LE(LiveAllocations(), blocks + 20) << "300 transfers have gone, each of several blocks";
}

} // namespace usbtest
