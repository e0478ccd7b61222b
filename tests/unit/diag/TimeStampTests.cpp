#include "diag/TimeStamp.h"

#include <gtest/gtest.h>

namespace {

std::string StampOf(const SYSTEMTIME& time)
{
    std::string text(TimeStampLength, '?');
    WriteTimeStamp(text.data(), time);
    return text;
}

SYSTEMTIME At(WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second, WORD milliseconds)
{
    return {year, month, 0, day, hour, minute, second, milliseconds};
}

TEST(TimeStamp, HasMonthDayYearThenTimeWithFourDigitsOfMilliseconds)
{
    EXPECT_EQ(StampOf(At(2009, 3, 7, 14, 5, 9, 42)), "[03-07-09 14:05:09:0042] ");
}

TEST(TimeStamp, YearIsTakenModuloAHundred)
{
    EXPECT_EQ(StampOf(At(2100, 12, 31, 23, 59, 59, 999)), "[12-31-00 23:59:59:0999] ");
    EXPECT_EQ(StampOf(At(1999, 1, 1, 0, 0, 0, 0)), "[01-01-99 00:00:00:0000] ");
}

TEST(TimeStamp, OfNowLiesBetweenTheLocalTimesBeforeAndAfter)
{
    SYSTEMTIME before;
    ::GetLocalTime(&before);
    const std::string stamp = TimeStamp();
    SYSTEMTIME after;
    ::GetLocalTime(&after);
    // Compares as text within a year, which New Year's Eve alone breaks.
    if (before.wYear == after.wYear) {
        EXPECT_LE(StampOf(before), stamp);
        EXPECT_LE(stamp, StampOf(after));
    }
}

} // namespace
