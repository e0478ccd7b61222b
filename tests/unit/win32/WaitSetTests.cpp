#include "win32/Event.h"
#include "win32/WaitSet.h"

#include <gtest/gtest.h>

namespace {

using win32::Event;

enum class Slot : DWORD { Stop, Work, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

TEST(WaitSet, TheFirstOfSeveralSignalledObjectsCounts)
{
    const Event stop(Event::Kind::ManualReset);
    const Event work(Event::Kind::ManualReset, true);
    const win32::WaitSet<Slot, 2> waits(stop.Get(), work.Get());
    EXPECT_EQ(waits.Any(0), Slot::Work);
    stop.Set();
    EXPECT_EQ(waits.Any(0), Slot::Stop);
}

TEST(WaitSet, OnlyTheCountedAutoResetEventIsConsumed)
{
    const Event stop(Event::Kind::AutoReset, true);
    const Event work(Event::Kind::AutoReset, true);
    const win32::WaitSet<Slot, 2> waits(stop.Get(), work.Get());
    EXPECT_EQ(waits.Any(0), Slot::Stop);
    EXPECT_EQ(waits.Any(0), Slot::Work);
    EXPECT_EQ(waits.Any(0), Slot::TimedOut);
}

TEST(WaitSet, SlotsThatAreNotHeardDoNotCountAndTheOthersKeepTheirNames)
{
    const Event stop(Event::Kind::ManualReset);
    const Event work(Event::Kind::AutoReset, true);
    const win32::WaitSet<Slot, 2> waits(stop.Get(), work.Get());
    auto all = win32::WaitSet<Slot, 2>::Heard::All();
    auto withoutWork = all;
    withoutWork.If(Slot::Work, false);
    auto withoutStop = all;
    withoutStop.If(Slot::Stop, false);
    EXPECT_EQ(waits.Any(withoutWork, 1), Slot::TimedOut);
    EXPECT_EQ(waits.Any(withoutStop, 0), Slot::Work) << "not consumed by a wait that did not hear it";
    stop.Set();
    EXPECT_EQ(waits.Any(withoutWork, 0), Slot::Stop);
    EXPECT_EQ(waits.Any(withoutStop, 1), Slot::TimedOut);
    EXPECT_EQ(waits.Any(all, 0), Slot::Stop);
}

TEST(WaitSet, NothingSignalledIsATimeOut)
{
    const Event event(Event::Kind::ManualReset);
    const win32::WaitSet<Slot, 2> waits(event.Get(), event.Get());
    EXPECT_EQ(waits.Any(1), Slot::TimedOut);
}

TEST(WaitSet, AHandleThatIsNoneIsAFailure)
{
    const Event event(Event::Kind::ManualReset);
    const win32::WaitSet<Slot, 2> waits(event.Get(), nullptr);
    EXPECT_EQ(waits.Any(0), Slot::Failed);
}

} // namespace
