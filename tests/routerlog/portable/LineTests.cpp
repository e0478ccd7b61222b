// Stamps, lines and dumps.
#include "tests/routerlog/portable/Logs.h"
#include "tools/RouterLog/log/DumpText.h"
#include "tools/RouterLog/log/LineReader.h"
#include "tools/RouterLog/log/LogTime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace routerlog;
using routerlogtest::TextSource;

namespace {

std::vector<std::string> LinesOf(std::string_view text, std::size_t most)
{
    TextSource source(text, most);
    LineReader reader(source);
    std::vector<std::string> lines;
    while (const auto line = reader.Next()) {
        EXPECT_EQ(line->number, lines.size() + 1);
        lines.emplace_back(line->text);
    }
    return lines;
}

DumpedBytes Parsed(std::string_view dump, bool full = false)
{
    DumpedBytes bytes;
    ParseDump(dump, full, bytes);
    return bytes;
}

TEST(Stamp, IsReadToTheMillisecond)
{
    const auto time = ParseStamp("[11-21-26 21:14:05:0042] x");
    ASSERT_TRUE(time);
    EXPECT_EQ(FormatTime(*time), "2026-11-21 21:14:05.042");
}

TEST(Stamp, OfALeapDayCountsOnToTheNext)
{
    EXPECT_EQ(*ParseStamp("[03-01-28 00:00:00:0000] ") - *ParseStamp("[02-29-28 23:59:59:0999] "), 1);
}

TEST(Stamp, ThatIsNoDateIsNone)
{
    for (const char* text :
         {"", "[", "[13-01-26 00:00:00:0000] ", "[02-29-26 00:00:00:0000] ", "[01-01-26 24:00:00:0000] ",
          "[01-01-26 00:00:00:1000] ", "[01-01-26 00:00:00:0000]x", "[01/01/26 00:00:00:0000] "})
    {
        EXPECT_FALSE(ParseStamp(text)) << text;
    }
}

TEST(Stamp, OfTheSkippedPacketLogHasNoMilliseconds)
{
    EXPECT_EQ(ParseSkippedStamp("11/21/26 21:14:05"), ParseStamp("[11-21-26 21:14:05:0000] "));
    EXPECT_FALSE(ParseSkippedStamp("11/21/26 21:14:0"));
}

TEST(LineReader, GivesTheSameLinesHoweverTheyAreRead)
{
    const std::string text = "one\r\n\r\ntwo\nthree\r four\r\nlast";
    const std::vector<std::string> expected{"one", "", "two", "three\r four", "last"};
    for (std::size_t most = 1; most < 12; ++most) {
        EXPECT_EQ(LinesOf(text, most), expected) << most;
    }
}

TEST(LineReader, CutsALineThatIsTooLongAndGoesOnAfterIt)
{
    for (const std::size_t length : {LineReader::LongestLine - 1, LineReader::LongestLine,
                                     LineReader::LongestLine + 1, 5 * LineReader::LongestLine})
    {
        const std::string text = std::string(length, 'x') + "\nnext\n";
        const std::vector<std::string> lines = LinesOf(text, 10'000);
        ASSERT_EQ(lines.size(), 2U) << length;
        EXPECT_EQ(lines[0].size(), std::min(length, LineReader::LongestLine));
        EXPECT_EQ(lines[1], "next");
    }
}

TEST(DumpText, GivesTheBytesBack)
{
    EXPECT_THAT(Parsed("A .. B . 0 00 FF ~ ").bytes, testing::ElementsAre('A', ' ', 'B', '.', '0', 0, 0xFF, '~'));
    EXPECT_TRUE(Parsed("A .. ").wellFormed);
    EXPECT_THAT(Parsed("A B  ~more~").bytes, testing::ElementsAre('A', 'B'));
    EXPECT_TRUE(Parsed("A B  ~more~").wellFormed);
}

TEST(DumpText, LeavesOutTheLastByteOfAFullLine)
{
    EXPECT_THAT(Parsed("A 4", true).bytes, testing::ElementsAre('A'));
    EXPECT_THAT(Parsed("A 4").bytes, testing::ElementsAre('A', '4'));
    EXPECT_THAT(Parsed("A B  ~mo", true).bytes, testing::ElementsAre('A', 'B'));
}

TEST(DumpText, StopsBeforeWhatNoDumpHas)
{
    const DumpedBytes bytes = Parsed("A 4f B ");
    EXPECT_THAT(bytes.bytes, testing::ElementsAre('A'));
    EXPECT_FALSE(bytes.wellFormed);
}

} // namespace
