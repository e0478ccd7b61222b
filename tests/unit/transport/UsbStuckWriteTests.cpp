// Writes that do not end, or end badly.
#include "tests/unit/transport/Hooks.h"
#include "tests/unit/transport/UsbFixture.h"
#include "usb/ControlCodes.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

namespace usbtransport {

constexpr const char* Abandoned = "CCyUSBDriver::USBCommandProcessThread() abort previous Write operation";

class UsbStuckWrite : public UsbTransport
{
protected:
    UsbStuckWrite() { host.quietSeconds.Reset(); }
    ~UsbStuckWrite() override { hooks::shortNaps = false; }

    /// The next write hangs until it is aborted; returns once it does.
    void SendStuck(std::string_view payload)
    {
        bus.Release(0);
        bus.SetRule(For(Out, Action::Hold, 1));
        Send(payload);
        ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    }
    std::uint32_t Aborts() { return bus.Count(0, Out).endpointAborts; }
};

TEST_F(UsbStuckWrite, IsAbortedWhenAnotherPacketWaitsWhichThenGoesOut)
{
    Connect();
    ASSERT_NO_FATAL_FAILURE(SendStuck("stuck"));
    EXPECT_EQ(Aborts(), 0u);
    Send("next");
    nextNumber = 1; // the stuck packet had number 0 and never goes out
    EXPECT_TRUE(NextIs("next"));
    EXPECT_EQ(Aborts(), 1u);
    EXPECT_TRUE(TracedInOrder({
        "CCyUSBDriver::USBCommandProcessThread() WARNING: Command queue not empty, but previous Write operation "
        "incomplete (TotalAborted=0)",
        "CCyUSBDriver::USBCommandProcessThread() abort previous Write operation (TotalAborted=1)",
    }));
    // Only what was written counts.
    EXPECT_TRUE(support::WaitUntil(
        [&] { return driver->GetTransferredBytes() == 14u * (driver->m_outgoing.NextNumber() - 1u) + 4u; }));
    EXPECT_TRUE(driver->IsConnected());
}

TEST_F(UsbStuckWrite, IsLeftAloneWhenTheQueueIsOnlySetLate)
{
    Connect();
    ASSERT_NO_FATAL_FAILURE(SendStuck("slow"));
    for (int i = 0; i < 10; ++i) {
        driver->SetNotEmptyLate();
        ASSERT_TRUE(support::WaitUntil([&] { return !driver->IsNotEmptySet(); }));
    }
    EXPECT_EQ(RecordingTrace::Count("Command queue not empty"), 0u);
    EXPECT_EQ(Aborts(), 0u);
}

TEST_F(UsbStuckWrite, IsAbortedOnTheSixthBusyPass)
{
    std::atomic<int> aborts{0};
    std::atomic<int> afterSix{0};
    onLine = [&](const std::string& line) {
        if (line.starts_with(Abandoned)) {
            ++aborts;
            afterSix += std::exchange(hooks::naps, 0) == 6 ? 1 : 0;
        }
    };
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    for (int packet = 0; packet < 11; ++packet) {
        Send("x");
    }
    ASSERT_TRUE(support::WaitUntil([&] { return aborts == 10; }));
    EXPECT_EQ(afterSix, 10);
}

TEST_F(UsbStuckWrite, LastsForSixWholeMillisecondsHoweverShortASleepIs)
{
    using Clock = std::chrono::steady_clock;
    std::mutex lock;
    std::vector<Clock::time_point> aborts;
    onLine = [&](const std::string& line) {
        if (line.starts_with(Abandoned)) {
            const std::lock_guard guard(lock);
            aborts.push_back(Clock::now());
        }
    };
    hooks::shortNaps = true;
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    for (int packet = 0; packet < 13; ++packet) {
        Send("x");
    }
    ASSERT_TRUE(RecordingTrace::WaitForLine("abort previous Write operation (TotalAborted=12)",
                                            3 * support::DefaultTimeout));
    driver.reset(); // and with it the thread that calls onLine
    const std::lock_guard guard(lock);
    auto shortest = Clock::duration::max();
    for (std::size_t i = 1; i < aborts.size(); ++i) {
        shortest = std::min(shortest, aborts[i] - aborts[i - 1]);
    }
    EXPECT_GE(shortest, std::chrono::milliseconds(6));
}

TEST_F(UsbStuckWrite, RaisesTheTimerResolutionForABurstAndNotPerPacket)
{
    const auto burst = [this](int aborts) {
        for (int packet = 0; packet < 11; ++packet) {
            Send("x");
        }
        return RecordingTrace::WaitForLine(
            "abort previous Write operation (TotalAborted=" + std::to_string(aborts) + ")",
            3 * support::DefaultTimeout);
    };
    const int before = hooks::throttlingCleared;
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(burst(10));
    const int first = hooks::throttlingCleared;
    EXPECT_GE(first, before + 1);
    EXPECT_LE(first, before + 4) << "once, but for quiet seconds on a machine that is busy";
    // A quiet second ends it, and sends an idle packet then.
    const std::uint8_t number = driver->m_outgoing.NextNumber();
    bus.Release(0);
    ASSERT_TRUE(support::WaitUntil([&] { return driver->m_outgoing.NextNumber() != number; }));
    bus.SetRule(For(Out, Action::Hold));
    ASSERT_TRUE(burst(20));
    EXPECT_GT(hooks::throttlingCleared, first);
}

TEST_F(UsbStuckWrite, CountsGrowForTheLifeOfTheThreadOverReconnectsToo)
{
    Connect();
    for (int round = 1; round <= 2; ++round) {
        ASSERT_NO_FATAL_FAILURE(SendStuck("stuck"));
        Send("next");
        ASSERT_TRUE(RecordingTrace::WaitForLine("(TotalAborted=" + std::to_string(round) + ")"));
        ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.pending == 0; }));
    }
    ASSERT_NO_FATAL_FAILURE(Reopen());
    ASSERT_NO_FATAL_FAILURE(SendStuck("stuck"));
    Send("next");
    EXPECT_TRUE(RecordingTrace::WaitForLine("abort previous Write operation (TotalAborted=3)"));
}

TEST_F(UsbStuckWrite, ThatEndsLateDoesNotPassForTheNextOne)
{
    Connect();
    // The driver heeds no abort: the first write goes out when its time has come, with the next one pending.
    Rule deaf = ForControl(usb::ControlAbortPipe, Action::Refuse);
    deaf.status = 0xC0000010;
    bus.SetRule(deaf);
    Rule late = For(Out, Action::Delay, 1);
    late.milliseconds = 300;
    bus.SetRule(late);
    bus.SetRule(For(Out, Action::Hold, 1));
    Send("late");
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.held == 1; }));
    Send("next one");
    ASSERT_TRUE(RecordingTrace::WaitForLine(Abandoned));
    ASSERT_TRUE(bus.WaitFor(0, Out, [](const Counters& c) { return c.begun == 2; }));
    EXPECT_TRUE(NextIs("late"));
    EXPECT_EQ(driver->GetTransferredBytes(), 0u) << "the late one is not waited for any more";
    bus.Release(0);
    EXPECT_TRUE(NextIs("next one"));
    EXPECT_TRUE(RecordingTrace::WaitForLine("overlapped write 22 bytes"));
    EXPECT_EQ(RecordingTrace::Count("overlapped write 18 bytes"), 0u);
}

TEST_F(UsbStuckWrite, FollowedByManyMoreLeavesNoHandleBehind)
{
    Connect();
    bus.SetRule(For(Out, Action::Hold));
    const auto abortMore = [&](std::uint32_t count) {
        const std::uint32_t before = Aborts();
        for (std::uint32_t packet = 0; packet < count; ++packet) {
            Send("x");
        }
        ASSERT_TRUE(
            bus.WaitFor(0, Out, [&](const Counters& c) { return c.endpointAborts >= before + count - 1; }));
    };
    const auto handles = [] {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    };
    ASSERT_NO_FATAL_FAILURE(abortMore(20));
    const DWORD before = handles();
    ASSERT_NO_FATAL_FAILURE(abortMore(80));
    EXPECT_LE(handles(), before);
    EXPECT_LE(bus.Count(0, Out).pending, 1u);
}

TEST_F(UsbStuckWrite, ThatFailsWithAnErrorOfWindowsMakesTheDriverReconnect)
{
    Connect();
    Rule rule = For(Out, Action::Fail, 1);
    rule.status = StatusIoDeviceError;
    bus.SetRule(rule);
    const int signals = host.signals;
    Send("fails");
    ASSERT_TRUE(RecordingTrace::WaitForLine("Command-sent failed, reconnecting"));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    EXPECT_GE(host.signals, signals + 2) << "at the failure and in the connect procedure";
    EXPECT_EQ(Aborts(), 1u) << "at the release of the endpoints";
    Send("after");
    EXPECT_TRUE(NextIs("after"));
}

TEST_F(UsbStuckWrite, ThatIsRefusedAtOnceMakesTheDriverReconnectToo)
{
    Connect();
    Rule rule = For(Out, Action::Refuse, 1);
    rule.status = StatusIoDeviceError;
    bus.SetRule(rule);
    Send("refused");
    ASSERT_TRUE(RecordingTrace::WaitForLine("Command-sent failed, reconnecting"));
    ASSERT_NO_FATAL_FAILURE(AwaitConnection());
    Send("after");
    EXPECT_TRUE(NextIs("after"));
}

TEST_F(UsbStuckWrite, ThatFailsWithoutAWindowsErrorIsPendingUntilAborted)
{
    Connect();
    Rule rule = For(Out, Action::Fail, 1);
    rule.status = StatusWithoutError;
    bus.SetRule(rule);
    const int signals = host.signals;
    Send("fails");
    ASSERT_TRUE(RecordingTrace::WaitForLine("Command-sent failed, reconnecting"));
    EXPECT_EQ(RecordingTrace::Count(Abandoned), 0u);
    Send("after");
    nextNumber = 1;
    EXPECT_TRUE(NextIs("after"));
    EXPECT_EQ(RecordingTrace::Count(Abandoned), 1u);
    EXPECT_EQ(RecordingTrace::Count("NotifyState(Not Connected)"), 1u) << "the one of the first connect";
    EXPECT_EQ(host.signals, signals);
}

} // namespace usbtransport
