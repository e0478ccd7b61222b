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

TEST(WaitSet, SlotsThatAreNeverExpectedDoNotCount)
{
    using enum win32::Expectation;
    const Event stop(Event::Kind::ManualReset);
    const Event work(Event::Kind::AutoReset, true);
    const win32::WaitSet<Slot, 2> waits(stop.Get(), work.Get());
    EXPECT_EQ(waits.Next({NotYet, Never}, 1), Slot::TimedOut);
    EXPECT_EQ(waits.Next({Never, NotYet}, 0), Slot::Work) << "not consumed by a wait that left it out";
    stop.Set();
    EXPECT_EQ(waits.Next({NotYet, Never}, 0), Slot::Stop);
    EXPECT_EQ(waits.Next({Never, NotYet}, 1), Slot::TimedOut);
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

using win32::Expectation;

/// Three slots; the first two are auto-reset events, so that a test sees whether a wait has asked for them.
class WaitSetNext : public testing::Test
{
protected:
    enum class Step : DWORD { First, Second, Third, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    const Event m_first{Event::Kind::AutoReset};
    const Event m_second{Event::Kind::AutoReset};
    const Event m_third{Event::Kind::AutoReset};
    const win32::WaitSet<Step, 3> m_waits{m_first.Get(), m_second.Get(), m_third.Get()};
};

TEST_F(WaitSetNext, WhatIsKnownNeedsNoKernel)
{
    const win32::WaitSet<Step, 3> broken(nullptr, nullptr, nullptr);
    EXPECT_EQ(broken.Next({Expectation::NotYet, Expectation::Now, Expectation::Maybe}, INFINITE), Step::Second);
}

TEST_F(WaitSetNext, OfTwoThatAreKnownTheFirstCounts)
{
    EXPECT_EQ(m_waits.Next({Expectation::Never, Expectation::Now, Expectation::Now}, INFINITE), Step::Second);
}

TEST_F(WaitSetNext, WhatMayBeSignalledBeforeTheKnownOneIsAsked)
{
    m_first.Set();
    EXPECT_EQ(m_waits.Next({Expectation::Maybe, Expectation::Now, Expectation::Never}, INFINITE), Step::First);
    EXPECT_EQ(m_waits.Next({Expectation::Maybe, Expectation::Now, Expectation::Never}, INFINITE), Step::Second);
}

TEST_F(WaitSetNext, WhatMayBeSignalledAfterTheKnownOneIsNot)
{
    m_third.Set();
    EXPECT_EQ(m_waits.Next({Expectation::NotYet, Expectation::Now, Expectation::Maybe}, INFINITE), Step::Second);
    EXPECT_TRUE(m_third.IsSet());
}

TEST_F(WaitSetNext, WithNothingKnownAllButTheNeversAreWaitedFor)
{
    m_first.Set();
    m_third.Set();
    EXPECT_EQ(m_waits.Next({Expectation::Never, Expectation::Maybe, Expectation::NotYet}, INFINITE), Step::Third);
    EXPECT_TRUE(m_first.IsSet()) << "not consumed";
    m_second.Set();
    EXPECT_EQ(m_waits.Next({Expectation::Never, Expectation::Maybe, Expectation::NotYet}, INFINITE), Step::Second);
}

TEST_F(WaitSetNext, WithNothingSignalledItTimesOut)
{
    EXPECT_EQ(m_waits.Next({Expectation::NotYet, Expectation::Maybe, Expectation::Never}, 1), Step::TimedOut);
}

TEST_F(WaitSetNext, TellsWhetherAllObjectsAreThere)
{
    EXPECT_TRUE(m_waits.HasAll());
    const win32::WaitSet<Step, 3> broken(m_first.Get(), nullptr, m_third.Get());
    EXPECT_FALSE(broken.HasAll());
}

} // namespace
