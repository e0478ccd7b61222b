// The download dialogue against the simulated instrument's bootloader: both ends of the conversation.
#include "instrument/Bootloader.h"
#include "instrument/Script.h"
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

using namespace firmwaretest;
using instrument::FirmwareReport;

namespace {

class FirmwareBootloader : public testing::Test
{
protected:
    /// Lets a bootloader with that script (lines without the word "firmware") be sent an image until nobody says
    /// anything more.
    void Converse(std::uint32_t imageSize, std::initializer_list<const char*> lines, bool queued = true)
    {
        instrument::Script script;
        for (const char* line : lines) {
            EXPECT_FALSE(AddScriptLine(script, std::string("firmware ") + line)) << line;
        }
        image = MakeImage(imageSize);
        bootloader.emplace(script.firmware, instrument::Bytes(image->bytes.get(), image->bytes.get() + imageSize));
        if (!queued) {
            dialogue.SwitchQueuedModeOff();
        }
        Load(dialogue, image);
        dialogue.Start(0);
        Talk();
    }

    void Talk()
    {
        for (; m_answered < output.messages.size(); ++m_answered) {
            const std::string message = output.messages[m_answered];
            const auto answer =
                bootloader->OnMessage({reinterpret_cast<const std::uint8_t*>(message.data()), message.size()}, {});
            if (answer.fixedAnswer) {
                Receive(dialogue, std::string(answer.fixedAnswer->begin(), answer.fixedAnswer->end()));
            }
        }
    }

    void ExpectArrived() const
    {
        EXPECT_EQ(bootloader->Report().state, FirmwareReport::State::Done);
        EXPECT_EQ(bootloader->Report().match, FirmwareReport::Match::Same);
        EXPECT_EQ(bootloader->Report().tooLong, 0U);
        EXPECT_FALSE(dialogue.IsDownloading());
        EXPECT_GE(output.Count("completed"), 1U);
    }

    void ExpectEndedWithoutAnImage(std::size_t messages) const
    {
        EXPECT_NE(bootloader->Report().state, FirmwareReport::State::Done);
        EXPECT_FALSE(dialogue.IsDownloading());
        EXPECT_EQ(output.Count("completed"), 1U);
        EXPECT_EQ(output.messages.size(), messages);
    }

    Recorder output;
    DownloadDialogue dialogue{output, output};
    std::optional<instrument::Bootloader> bootloader;
    FirmwareImagePtr image;

private:
    std::size_t m_answered = 0;
};

TEST_F(FirmwareBootloader, GetsTheWholeImageOneChunkForEachAcknowledgement)
{
    Converse(1'000'001, {"accept 4000"});
    ExpectArrived();
    EXPECT_EQ(bootloader->Report().chunks, (1'000'001U + 3989) / 3990);
    EXPECT_EQ(output.Count("completed"), 1U);
}

TEST_F(FirmwareBootloader, GetsTheWholeImageAtOnceAndAcknowledgesTheClosingMessage)
{
    Converse(1'000'001, {"accept 65535", "quiet"}, false);
    ExpectArrived();
    EXPECT_EQ(output.Count("completed"), 1U);
}

TEST_F(FirmwareBootloader, GetsTheWholeImageAtOnceAlsoWhenItAcknowledgesEachChunk)
{
    // The first acknowledgement finds an empty queue and completes; what has been sent arrives all the same.
    Converse(100'000, {"accept 1000"}, false);
    ExpectArrived();
}

TEST_F(FirmwareBootloader, TakesAnImageInTheSmallestChunks)
{
    Converse(1001, {"accept 11"});
    ExpectArrived();
    EXPECT_EQ(bootloader->Report().chunks, 501U);
}

TEST_F(FirmwareBootloader, WhoseChunkSizeHasNoRoomGetsTheClosingMessageAndEndsIt)
{
    Converse(100, {"accept 10"});
    EXPECT_EQ(bootloader->Report().received, 0U);
    EXPECT_FALSE(dialogue.IsDownloading());
    EXPECT_EQ(output.messages.back(), Done);
}

TEST_F(FirmwareBootloader, Denies)
{
    Converse(100, {"deny"});
    ExpectEndedWithoutAnImage(1);
}

TEST_F(FirmwareBootloader, EchoesAWrongSize)
{
    Converse(100, {"wrong-echo"});
    ExpectEndedWithoutAnImage(1);
}

TEST_F(FirmwareBootloader, NamesAChunkSizeOfZero)
{
    Converse(100, {"accept 0"});
    ExpectEndedWithoutAnImage(1);
}

TEST_F(FirmwareBootloader, FailsAtTheThirdChunk)
{
    Converse(100'000, {"at 3 fail"});
    ExpectEndedWithoutAnImage(1 + 3);
}

TEST_F(FirmwareBootloader, RebootsAtTheFirstChunk)
{
    Converse(100'000, {"at 1 rebooting"});
    ExpectEndedWithoutAnImage(1 + 1);
}

TEST_F(FirmwareBootloader, SaysThatItsFirmwareIsReadyAtTheSecondChunk)
{
    Converse(100'000, {"at 2 ready"});
    ExpectEndedWithoutAnImage(1 + 2);
}

TEST_F(FirmwareBootloader, RebootsInsteadOfAcknowledgingTheClosingMessage)
{
    Converse(10'000, {"at done rebooting"});
    ExpectArrived();
}

TEST_F(FirmwareBootloader, FallsSilentInTheMiddleAndTheDialogueWaits)
{
    Converse(100'000, {"at 5 silence"});
    EXPECT_EQ(dialogue.CurrentState(), DownloadDialogue::State::SendingImage);
    EXPECT_EQ(output.Count("completed"), 0U);
    dialogue.Retry(1'000'000); // only PREPARE_DOWNLOAD is sent again
    EXPECT_EQ(output.messages.size(), 1U + 5);
}

TEST_F(FirmwareBootloader, IsPluggedAgainAfterItFellSilentAndGetsTheWholeImage)
{
    Converse(100'000, {"at 5 silence"});
    dialogue.Start(0);
    Talk();
    ExpectArrived();
}

TEST_F(FirmwareBootloader, AnswersTheThirdResend)
{
    Converse(10'000, {"unanswered 3"});
    for (std::uint32_t tick = 3001; tick <= 3 * 3001; tick += 3001) {
        EXPECT_EQ(dialogue.CurrentState(), DownloadDialogue::State::WaitingForReady);
        dialogue.Retry(tick);
        Talk();
    }
    ExpectArrived();
    EXPECT_EQ(bootloader->Report().prepares, 4U);
}

TEST_F(FirmwareBootloader, NeverAnswersAndTheDialogueWaitsForIt)
{
    Converse(10'000, {"unanswered 1000"});
    for (std::uint32_t tick = 0; tick < 100'000; tick += 1000) {
        dialogue.Retry(tick);
        Talk();
    }
    EXPECT_EQ(bootloader->Report().prepares, 4U);
    EXPECT_TRUE(dialogue.IsDownloading());
    EXPECT_EQ(output.Count("completed"), 0U);
}

} // namespace
