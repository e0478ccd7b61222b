// How a port ends: what it waits for, and for how long.
#include "tests/unit/ports/PortPipeFixture.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <string>

namespace {

using PortPipeStop = PortPipe;

TEST_F(PortPipeStop, ByDefaultWaitsUntilTheClientHasRead)
{
    Make();
    Connect();
    LeaveUnread();
    const win32::Event ended(win32::Event::Kind::ManualReset);
    win32::Thread stopper;
    stopper.Start([&] {
        port.reset();
        ended.Set();
    });
    ASSERT_TRUE(RecordingTrace::WaitForLine("shutting down..."));
    EXPECT_FALSE(ended.Wait(300)) << "the client has not read yet";
    EXPECT_EQ(client.Read(), "unread");
    EXPECT_TRUE(support::WaitFor(ended.Get()));
}

TEST_F(PortPipeStop, WithAFlushLimitWaitsThatLong)
{
    constexpr DWORD LimitMs = 300;
    Make(4096, 4096, {.flushLimitMs = LimitMs});
    Connect();
    LeaveUnread();
    const ULONGLONG begin = ::GetTickCount64();
    port.reset();
    EXPECT_GE(::GetTickCount64() - begin, LimitMs - 20); // the clock may tick in 16 ms
    EXPECT_EQ(RecordingTrace::Count("Ended (" + fullName + ")"), 1u);
    EXPECT_TRUE(client.WaitForBreak());
}

TEST_F(PortPipeStop, WithAFlushLimitEndsAtOnceWhenTheClientReads)
{
    Make(4096, 4096, {.flushLimitMs = INFINITE});
    Connect();
    LeaveUnread();
    EXPECT_EQ(client.Read(), "unread");
    port.reset();
    EXPECT_EQ(RecordingTrace::Count("Ended (" + fullName + ")"), 1u);
}

TEST_F(PortPipeStop, BeginStopReturnsAtOnceAndItsLimitCounts)
{
    Make();
    Connect();
    LeaveUnread();
    port->BeginStop(1);
    EXPECT_TRUE(RecordingTrace::WaitForLine("shutting down..."));
    port.reset();
    EXPECT_EQ(RecordingTrace::Count("Ended (" + fullName + ")"), 1u);
}

TEST_F(PortPipeStop, TheLimitEndsTheFlushOfARecreationToo)
{
    Make();
    Connect();
    LeaveUnread();
    port->RequestPipeRecreate();
    ASSERT_TRUE(support::WaitUntil([&] { return !port->IsPipeConnected(); }));
    port->BeginStop(1);
    port.reset();
    EXPECT_EQ(RecordingTrace::Count("Ended (" + fullName + ")"), 1u);
}

} // namespace
