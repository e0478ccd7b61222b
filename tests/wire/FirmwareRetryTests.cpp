// PREPARE_DOWNLOAD sent again to an instrument that does not answer.
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace firmwaretest;
using State = DownloadDialogue::State;

namespace {

constexpr const char* Line =
    "line FirmwareDownloader::NeedsDownload() retry reached, sending E_DOWNLOAD_START to try and resync";

class FirmwareRetry : public testing::Test
{
protected:
    FirmwareRetry() { Load(dialogue, MakeImage(100)); }

    /// Whether a query at that time sends PREPARE_DOWNLOAD.
    bool SendsAt(std::uint32_t tick)
    {
        const std::size_t before = output.messages.size();
        const bool due = dialogue.IsRetryDue(tick);
        dialogue.Retry(tick);
        const std::size_t sent = output.messages.size() - before;
        EXPECT_EQ(sent, due ? 1U : 0U);
        EXPECT_TRUE(sent == 0 || output.messages.back() == "PREPARE_DOWNLOAD 100\r");
        return sent == 1;
    }

    Recorder output;
    DownloadDialogue dialogue{output, output};
};

TEST_F(FirmwareRetry, After3001MillisecondsPrepareDownloadIsSentNotAfter3000)
{
    dialogue.Start(10'000);
    EXPECT_FALSE(SendsAt(13'000));
    EXPECT_TRUE(SendsAt(13'001));
    EXPECT_EQ(output.Count(Line), 1U);
    EXPECT_EQ(dialogue.RetryCount(), 1);
    EXPECT_EQ(dialogue.CurrentState(), State::WaitingForReady);
}

TEST_F(FirmwareRetry, ThreeResendsAreMoreThan3000MillisecondsApartThenNone)
{
    dialogue.Start(0);
    EXPECT_TRUE(SendsAt(3001));
    EXPECT_FALSE(SendsAt(6001));
    EXPECT_TRUE(SendsAt(6002));
    EXPECT_TRUE(SendsAt(9003));
    EXPECT_FALSE(SendsAt(12'004));
    EXPECT_FALSE(SendsAt(1'000'000));
    EXPECT_EQ(dialogue.RetryCount(), 3);
    EXPECT_EQ(output.Count(Line), 3U);
    EXPECT_EQ(dialogue.CurrentState(), State::WaitingForReady);
}

TEST_F(FirmwareRetry, AnAnswerAfterTheLastResendStillStartsTheDownload)
{
    dialogue.Start(0);
    for (std::uint32_t tick = 0; tick < 60'000; tick += 1000) {
        dialogue.Retry(tick);
    }
    Receive(dialogue, "RECEIVE_READY 100 4000");
    EXPECT_EQ(dialogue.CurrentState(), State::SendingImage);
}

TEST_F(FirmwareRetry, TheTickCountMayWrapInBetween)
{
    dialogue.Start(0xFFFFFF00U);
    EXPECT_FALSE(SendsAt(0));
    EXPECT_FALSE(SendsAt(3000 - 0x100));
    EXPECT_TRUE(SendsAt(3001 - 0x100));
}

TEST_F(FirmwareRetry, StartingAnewGivesAllThreeResendsAgain)
{
    dialogue.Start(0);
    EXPECT_TRUE(SendsAt(4000));
    EXPECT_TRUE(SendsAt(8000));
    dialogue.Start(9000);
    EXPECT_EQ(dialogue.RetryCount(), 0);
    EXPECT_TRUE(SendsAt(13'000));
    EXPECT_TRUE(SendsAt(17'000));
    EXPECT_TRUE(SendsAt(21'000));
    EXPECT_FALSE(SendsAt(25'000));
}

TEST_F(FirmwareRetry, NothingIsSentAgainWhileIdleOrWhileTheImageIsBeingSent)
{
    EXPECT_FALSE(SendsAt(50'000));
    dialogue.Start(50'000);
    Receive(dialogue, "RECEIVE_READY 100 4000");
    EXPECT_FALSE(SendsAt(60'000));
    Receive(dialogue, "DENY");
    EXPECT_FALSE(SendsAt(70'000));
}

TEST_F(FirmwareRetry, AResendThatRunsOutOfMemoryEndsTheDialogue)
{
    dialogue.Start(0);
    output.callsUntilFailure = 0;
    dialogue.Retry(4000);
    EXPECT_EQ(dialogue.CurrentState(), State::Idle);
    EXPECT_EQ(output.log.back(), "completed");
}

} // namespace
