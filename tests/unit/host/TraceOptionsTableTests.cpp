#include "host/TraceOptionsTable.h"

#include <gtest/gtest.h>
#include <atomic>
#include <limits>
#include <thread>
#include <vector>

namespace {

TEST(TraceOptionsTable, AnUnknownDeviceHasNoMaskAndTheDefaultLength)
{
    const TraceOptionsTable table;
    EXPECT_EQ(table.Find(7).mask, 0U);
    EXPECT_EQ(table.Find(7).maxPacketLength, 100U);
}

TEST(TraceOptionsTable, KeepsEveryDeviceWhileItGrows)
{
    TraceOptionsTable table;
    for (std::int32_t device = -500; device < 500; ++device) {
        table.Set(device, {static_cast<std::uint32_t>(device + 1000), static_cast<std::uint32_t>(device + 2000)});
    }
    for (std::int32_t device = -500; device < 500; ++device) {
        ASSERT_EQ(table.Find(device).mask, static_cast<std::uint32_t>(device + 1000));
        ASSERT_EQ(table.Find(device).maxPacketLength, static_cast<std::uint32_t>(device + 2000));
    }
    EXPECT_EQ(table.Find(500).mask, 0U);
}

TEST(TraceOptionsTable, TakesTheOutermostDeviceNumbers)
{
    TraceOptionsTable table;
    table.Set(std::numeric_limits<std::int32_t>::min(), {1, 2});
    table.Set(std::numeric_limits<std::int32_t>::max(), {3, 4});
    table.Set(0, {5, 6});
    table.Set(-1, {7, 8});
    EXPECT_EQ(table.Find(std::numeric_limits<std::int32_t>::min()).mask, 1U);
    EXPECT_EQ(table.Find(std::numeric_limits<std::int32_t>::max()).mask, 3U);
    EXPECT_EQ(table.Find(0).mask, 5U);
    EXPECT_EQ(table.Find(-1).mask, 7U);
}

TEST(TraceOptionsTable, SettingADeviceAgainReplacesItsOptions)
{
    TraceOptionsTable table;
    table.Set(3, {1, 2});
    table.Set(3, {0xFFFFFFFF, 0xFFFFFFFF});
    EXPECT_EQ(table.Find(3).mask, 0xFFFFFFFFU);
    EXPECT_EQ(table.Find(3).maxPacketLength, 0xFFFFFFFFU);
}

TEST(TraceOptionsTable, AfterAResetEveryDeviceIsLikeAnUnknownOne)
{
    TraceOptionsTable table;
    table.Set(3, {1, 2});
    table.ResetAll();
    EXPECT_EQ(table.Find(3).mask, 0U);
    EXPECT_EQ(table.Find(3).maxPacketLength, 100U);
}

// Mask and length are always written as equal numbers; a reader that saw one old and one new would see a
// difference.
TEST(TraceOptionsTable, ReadersNeverSeeHalfAChangeWhileItChangesAndGrows)
{
    TraceOptionsTable table;
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                const TraceOptions options = table.Find(1);
                if (options.mask != options.maxPacketLength && options.maxPacketLength != 100) {
                    ++torn;
                }
            }
        });
    }
    for (std::uint32_t value = 1; value < 5000; ++value) {
        table.Set(1, {value * 0x10001U, value * 0x10001U});
        table.Set(static_cast<std::int32_t>(value), {value, value});
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(torn, 0);
}

} // namespace
