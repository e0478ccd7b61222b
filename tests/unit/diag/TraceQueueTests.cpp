#include "diag/TraceQueue.h"

#include "diag/TimeStamp.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

bool IsSignalled(const TraceQueue& queue)
{
    return ::WaitForSingleObject(queue.DataEvent(), 0) == WAIT_OBJECT_0;
}

void Fill(TraceQueue& queue, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        queue.Push(0x00010001, std::to_string(i), TraceQueue::Stamp::None);
    }
}

TEST(TraceQueue, LowHalfOfTheMaskMeansTheWindowAndHighHalfTheFile)
{
    struct Case
    {
        std::uint32_t mask;
        bool window;
        bool file;
    };
    for (const Case& c :
         {Case{0x00000001, true, false}, Case{0x0000FFFF, true, false}, Case{0x00010000, false, true},
          Case{0x80000000, false, true}, Case{0x00010001, true, true}, Case{0xFFFFFFFF, true, true}})
    {
        TraceQueue queue;
        queue.Push(c.mask, "line", TraceQueue::Stamp::None);
        CDebugEntry entry;
        ASSERT_TRUE(queue.Pop(entry));
        EXPECT_EQ(entry.ToWindow, c.window) << c.mask;
        EXPECT_EQ(entry.ToFile, c.file) << c.mask;
    }
}

TEST(TraceQueue, EntriesLeaveInTheOrderOfTheirArrival)
{
    TraceQueue queue;
    Fill(queue, 3);
    CDebugEntry entry;
    for (const char* expected : {"0", "1", "2"}) {
        ASSERT_TRUE(queue.Pop(entry));
        EXPECT_EQ(entry.Text, expected);
    }
    EXPECT_FALSE(queue.Pop(entry));
}

TEST(TraceQueue, DataEventIsSignalledExactlyWhileEntriesAreQueued)
{
    TraceQueue queue;
    EXPECT_FALSE(IsSignalled(queue));
    Fill(queue, 2);
    EXPECT_TRUE(IsSignalled(queue));
    CDebugEntry entry;
    queue.Pop(entry);
    EXPECT_TRUE(IsSignalled(queue));
    queue.Pop(entry);
    EXPECT_FALSE(IsSignalled(queue));
    Fill(queue, 1);
    EXPECT_TRUE(IsSignalled(queue));
}

TEST(TraceQueue, StampStandsBeforeTheText)
{
    TraceQueue queue;
    queue.Push(1, "hello", TraceQueue::Stamp::Now);
    CDebugEntry entry;
    ASSERT_TRUE(queue.Pop(entry));
    ASSERT_EQ(entry.Text.size(), TimeStampLength + 5);
    EXPECT_EQ(entry.Text.front(), '[');
    EXPECT_EQ(entry.Text.substr(TimeStampLength - 2), "] hello");
}

TEST(TraceQueue, StampsNeverRunBackwardsWhenSeveralThreadsPush)
{
    TraceQueue queue;
    std::vector<std::thread> producers;
    for (int i = 0; i < 4; ++i) {
        producers.emplace_back([&] {
            for (int n = 0; n < 2000; ++n) {
                queue.Push(1, "x", TraceQueue::Stamp::Now);
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    std::string previous;
    CDebugEntry entry;
    std::size_t count = 0;
    while (queue.Pop(entry)) {
        EXPECT_LE(previous, entry.Text);
        previous = entry.Text;
        ++count;
    }
    EXPECT_EQ(count, 8000u);
}

TEST(TraceQueue, OneEntryBelowTheLimitIsNoOverflow)
{
    TraceQueue queue;
    Fill(queue, 9999);
    EXPECT_FALSE(queue.DiscardOverflow(true));
    EXPECT_EQ(queue.Size(), 9999u);
}

TEST(TraceQueue, AtTheLimitEverythingGoesAndOneLineTellsHowMuch)
{
    TraceQueue queue;
    Fill(queue, 10000);
    EXPECT_TRUE(queue.DiscardOverflow(true));
    ASSERT_EQ(queue.Size(), 1u);
    EXPECT_TRUE(IsSignalled(queue));
    CDebugEntry entry;
    ASSERT_TRUE(queue.Pop(entry));
    EXPECT_EQ(entry.Text.substr(TimeStampLength), "Buffer overflow, removing 10000 entries");
    EXPECT_EQ(entry.Text.front(), '[');
    EXPECT_TRUE(entry.ToWindow);
    EXPECT_TRUE(entry.ToFile);
}

TEST(TraceQueue, EntriesBeyondTheLimitAreCounted)
{
    TraceQueue queue;
    Fill(queue, 25000);
    EXPECT_EQ(queue.Size(), 25000u);
    EXPECT_TRUE(queue.DiscardOverflow(true));
    CDebugEntry entry;
    ASSERT_TRUE(queue.Pop(entry));
    EXPECT_EQ(entry.Text.substr(TimeStampLength), "Buffer overflow, removing 25000 entries");
    EXPECT_EQ(queue.Size(), 0u);
    Fill(queue, 1);
    EXPECT_EQ(queue.Size(), 1u);
}

TEST(TraceQueue, OverflowWithoutAReportLeavesAnEmptyUnsignalledQueue)
{
    TraceQueue queue;
    Fill(queue, 10000);
    EXPECT_TRUE(queue.DiscardOverflow(false));
    EXPECT_EQ(queue.Size(), 0u);
    EXPECT_FALSE(IsSignalled(queue));
}

} // namespace
