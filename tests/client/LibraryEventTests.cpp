// What a port tells its client of a connection that comes and goes.
#include "client/PortEvents.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct LibraryEvents : testing::Test
{
    std::vector<int> Kinds()
    {
        std::vector<int> kinds;
        while (!events.IsEmpty()) {
            last = events.Take();
            kinds.push_back(last.kind);
        }
        return kinds;
    }

    clientlib::PortEvents events;
    morvane_event last{};
};

TEST_F(LibraryEvents, TheFirstConnectionIsNoReturn)
{
    events.Connected();
    EXPECT_EQ(Kinds(), std::vector<int>{MORVANE_EVENT_CONNECTED});
}

TEST_F(LibraryEvents, AnInstrumentGoesAndComesBack)
{
    events.Connected();
    events.Lost(ERROR_BROKEN_PIPE, 2, 3);
    events.InstrumentGone();
    EXPECT_EQ(Kinds(), (std::vector<int>{MORVANE_EVENT_CONNECTED, MORVANE_EVENT_INSTRUMENT_GONE}));
    EXPECT_EQ(last.unanswered, 2u);
    EXPECT_EQ(last.unsent, 3u);
    EXPECT_EQ(last.windows_error, static_cast<std::uint32_t>(ERROR_BROKEN_PIPE));
    events.Connected();
    EXPECT_EQ(Kinds(), std::vector<int>{MORVANE_EVENT_INSTRUMENT_BACK});
}

TEST_F(LibraryEvents, AMessageWrittenToABrokenPipeCounts)
{
    events.Connected();
    events.Lost(ERROR_BROKEN_PIPE, 2, 0);
    events.AlsoUnanswered();
    events.RouterGone();
    EXPECT_EQ(Kinds(), (std::vector<int>{MORVANE_EVENT_CONNECTED, MORVANE_EVENT_ROUTER_GONE}));
    EXPECT_EQ(last.unanswered, 3u);
}

TEST_F(LibraryEvents, AStartWhileTheRouterEndsIsReportedOnce)
{
    const clientlib::Result why{MORVANE_E_ROUTER_GONE, 5};
    for (int attempt = 0; attempt < 3; ++attempt) {
        events.RouterEnding(why);
        events.NotYet(why);
    }
    EXPECT_EQ(Kinds(), (std::vector<int>{MORVANE_EVENT_ROUTER_ENDING, MORVANE_EVENT_NOT_YET}));
    EXPECT_EQ(last.error, MORVANE_E_ROUTER_GONE);
    events.Connected();
    events.RouterEnding(why);
    EXPECT_EQ(Kinds(), (std::vector<int>{MORVANE_EVENT_CONNECTED, MORVANE_EVENT_ROUTER_ENDING}));
}

} // namespace
