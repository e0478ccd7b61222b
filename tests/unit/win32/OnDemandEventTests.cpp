#include "win32/OnDemandEvent.h"
#include "win32/Thread.h"

#include <gtest/gtest.h>

namespace {

bool IsSignalled(const win32::OnDemandEvent& event)
{
    return ::WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0;
}

TEST(OnDemandEvent, ASettingWithoutAListenerCanBeTakenAndSignalsNothing)
{
    win32::OnDemandEvent event(false);
    event.Set();
    EXPECT_FALSE(IsSignalled(event));
    EXPECT_TRUE(event.Arm());
    EXPECT_TRUE(event.Take());
    EXPECT_FALSE(event.Take());
}

TEST(OnDemandEvent, ASettingDuringTheWaitSignalsOnce)
{
    win32::OnDemandEvent event(false);
    ASSERT_FALSE(event.Arm());
    event.Set();
    event.Set();
    EXPECT_TRUE(IsSignalled(event));
    EXPECT_FALSE(IsSignalled(event));
    EXPECT_TRUE(event.Take());
}

TEST(OnDemandEvent, ASettingAfterDisarmSignalsNothing)
{
    win32::OnDemandEvent event(false);
    ASSERT_FALSE(event.Arm());
    ASSERT_FALSE(event.Disarm());
    event.Set();
    EXPECT_FALSE(IsSignalled(event));
    EXPECT_TRUE(event.Disarm());
}

TEST(OnDemandEvent, BegunAsSetItCanBeTakenAndWaitedForOnce)
{
    win32::OnDemandEvent event(true);
    EXPECT_TRUE(IsSignalled(event));
    EXPECT_FALSE(IsSignalled(event));
    EXPECT_TRUE(event.Take());
    EXPECT_FALSE(event.Take());
}

TEST(OnDemandEvent, NoSettingIsMissedHoweverItFallsBetweenLookingAndWaiting)
{
    constexpr int Settings = 20'000;
    win32::OnDemandEvent there(false);
    win32::OnDemandEvent back(false);
    const auto await = [](win32::OnDemandEvent& event) {
        while (!event.Take()) {
            if (!event.Arm() && ::WaitForSingleObject(event.Get(), 20'000) != WAIT_OBJECT_0) {
                return false;
            }
        }
        return true;
    };
    win32::Thread answerer;
    answerer.Start([&] {
        for (int setting = 0; setting < Settings && await(there); ++setting) {
            back.Set();
        }
    });
    int answered = 0;
    for (; answered < Settings; ++answered) {
        there.Set();
        if (!await(back)) {
            break;
        }
    }
    there.Set();
    EXPECT_EQ(answered, Settings);
}

} // namespace
