// The download dialogue: which text leads where.
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using namespace firmwaretest;
using State = DownloadDialogue::State;
using Messages = std::vector<std::string>;

namespace {

class FirmwareDialogue : public testing::Test
{
protected:
    /// To the state in which the instrument's answer to PREPARE_DOWNLOAD is awaited.
    void StartWith(std::uint32_t imageSize)
    {
        image = MakeImage(imageSize);
        Load(dialogue, image);
        dialogue.Start(0);
        Forget();
    }

    /// To the state in which the image is being sent; the first chunk is out.
    void StartSending(std::uint32_t imageSize, std::int32_t chunkSize = 4000)
    {
        StartWith(imageSize);
        Receive(dialogue, "RECEIVE_READY " + std::to_string(imageSize) + " " + std::to_string(chunkSize));
        ASSERT_EQ(dialogue.CurrentState(), State::SendingImage);
        Forget();
    }

    void Forget()
    {
        output.log.clear();
        output.messages.clear();
    }

    void ExpectEnded() const
    {
        EXPECT_EQ(dialogue.CurrentState(), State::Idle);
        EXPECT_FALSE(dialogue.IsDownloading());
        ASSERT_FALSE(output.log.empty());
        EXPECT_EQ(output.log.back(), "completed");
        EXPECT_EQ(output.Count("completed"), 1U);
    }

    Recorder output;
    DownloadDialogue dialogue{output, output};
    FirmwareImagePtr image;
};

TEST_F(FirmwareDialogue, IsIdleAndWithoutAnImageAtFirst)
{
    EXPECT_EQ(dialogue.CurrentState(), State::Idle);
    EXPECT_FALSE(dialogue.IsDownloading());
    EXPECT_FALSE(dialogue.HasImage());
    EXPECT_EQ(dialogue.RetryCount(), 0);
}

TEST_F(FirmwareDialogue, StartSendsPrepareDownloadWithoutATerminatingZero)
{
    Load(dialogue, MakeImage(7981));
    dialogue.Start(0);
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::DownloadStart() Firmware download started",
                                    "submit PREPARE_DOWNLOAD 7981\r"}));
    EXPECT_EQ(dialogue.CurrentState(), State::WaitingForReady);
    EXPECT_TRUE(dialogue.IsDownloading());
}

TEST_F(FirmwareDialogue, AnEmptyImageIsAnnouncedAsZeroAndOnlyClosed)
{
    Load(dialogue, MakeImage(0));
    EXPECT_TRUE(dialogue.HasImage());
    dialogue.Start(0);
    Receive(dialogue, "RECEIVE_READY 0 4000");
    EXPECT_EQ(output.messages, (Messages{"PREPARE_DOWNLOAD 0\r", std::string(Done)}));
    Forget();
    Receive(dialogue, "DOWNLOAD_OK");
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AnImageBeyondTwoGigabytesHasANegativeSize)
{
    dialogue.SetImageSize(4294967295U);
    dialogue.Start(0);
    Receive(dialogue, "RECEIVE_READY -1 4000");
    EXPECT_EQ(output.messages, (Messages{"PREPARE_DOWNLOAD -1\r", std::string(Done)}));
}

TEST_F(FirmwareDialogue, TheFirstChunkFollowsTheClearingOfTheCommandQueue)
{
    StartWith(100);
    Receive(dialogue, "RECEIVE_READY 100 69");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive RECEIVE_READY", "clear",
                                    "line FirmwareDownloader::DownloadImage() Firmware image download...",
                                    "chunk 0 60", "chunk 60 40", "submit " + Chunk(image, 0, 60)}));
    EXPECT_EQ(dialogue.CurrentState(), State::SendingImage);
    EXPECT_TRUE(dialogue.IsDownloading());
}

TEST_F(FirmwareDialogue, AnImageOf7981BytesIs3990And3990And1AndTheClosing15)
{
    StartWith(7981);
    Receive(dialogue, "RECEIVE_READY 7981 4000");
    for (int reply = 0; reply < 3; ++reply) {
        Receive(dialogue, "DOWNLOAD_OK");
        EXPECT_EQ(dialogue.CurrentState(), State::SendingImage);
    }
    EXPECT_EQ(output.messages, (Messages{Chunk(image, 0, 3990), Chunk(image, 3990, 3990), Chunk(image, 7980, 1),
                                         std::string(Done)}));
    EXPECT_EQ(output.messages.back().size(), 15U);
    EXPECT_EQ(output.messages.back().back(), '\0');
    Receive(dialogue, "DOWNLOAD_OK");
    ExpectEnded();
}

TEST_F(FirmwareDialogue, EachAcknowledgementSendsOneMessage)
{
    StartSending(7981);
    Receive(dialogue, "DOWNLOAD_OK\r");
    EXPECT_EQ(output.log,
              (Messages{"line FirmwareDownloader::OnReceive DOWNLOAD_OK", "submit " + Chunk(image, 3990, 3990)}));
}

TEST_F(FirmwareDialogue, TheNumbers100And0ForAnImageOf100BytesAreRefused)
{
    StartWith(100);
    Receive(dialogue, "RECEIVE_READY 100 0");
    EXPECT_EQ(output.log,
              (Messages{"line FirmwareDownloader::OnReceive RECEIVE_READY",
                        "line FirmwareDownloader::OnReceive Firmware unable to receive image", "completed"}));
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AWrongEchoOfTheImageSizeIsRefused)
{
    StartWith(100);
    Receive(dialogue, "RECEIVE_READY 101 4000");
    EXPECT_EQ(output.Count("line FirmwareDownloader::OnReceive Firmware unable to receive image"), 1U);
    EXPECT_TRUE(output.messages.empty());
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AReplyWithDenyAndReceiveReadyCountsAsReceiveReady)
{
    for (const char* reply : {"RECEIVE_READY 100 4000 DENY", "RECEIVE_READY:DENY 100 4000"}) {
        StartWith(100);
        Receive(dialogue, reply);
        EXPECT_EQ(output.messages, Messages{Chunk(image, 0, 100)}) << reply;
        EXPECT_EQ(output.Count("line FirmwareDownloader::OnReceive DENY"), 0U) << reply;
    }
}

TEST_F(FirmwareDialogue, DenyEndsIt)
{
    StartWith(100);
    Receive(dialogue, "DENY");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive DENY", "completed"}));
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AnyOtherTextWhileWaitingEndsItWithoutALine)
{
    for (const char* reply : {"FIRMWARE_READY", "DOWNLOAD_OK", "REBOOTING", "receive_ready 100 4000", "deny", "x"})
    {
        StartWith(100);
        Receive(dialogue, reply);
        EXPECT_EQ(output.log, Messages{"completed"}) << reply;
        ExpectEnded();
    }
}

TEST_F(FirmwareDialogue, KeywordsAreFoundAnywhereInTheText)
{
    StartWith(100);
    Receive(dialogue, "\r\n..RECEIVE_READY.. 100 4000 and more");
    EXPECT_EQ(output.messages, Messages{Chunk(image, 0, 100)});
    Forget();
    Receive(dialogue, "xxDOWNLOAD_OKxx");
    EXPECT_EQ(output.messages, Messages{std::string(Done)});
}

TEST_F(FirmwareDialogue, TextBehindAZeroByteIsNotSeen)
{
    StartWith(100);
    Receive(dialogue, std::string("\0RECEIVE_READY 100 4000", 23));
    EXPECT_EQ(output.log, Messages{"completed"});

    StartWith(100);
    Receive(dialogue, std::string("RECEIVE_READY 100\0 4000", 23));
    EXPECT_EQ(output.Count("line FirmwareDownloader::OnReceive Firmware unable to receive image"), 1U);
}

TEST_F(FirmwareDialogue, WhileSendingTheFirstOfSeveralWordsCounts)
{
    StartSending(100);
    Receive(dialogue, "REBOOTING DOWNLOAD_OK DOWNLOAD_FAIL FIRMWARE_READY");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive FIRMWARE_READY", "completed"}));
    ExpectEnded();

    StartSending(100);
    Receive(dialogue, "REBOOTING DOWNLOAD_OK DOWNLOAD_FAIL");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive DOWNLOAD_FAIL", "completed"}));
    ExpectEnded();

    StartSending(100);
    Receive(dialogue, "REBOOTING DOWNLOAD_OK");
    EXPECT_EQ(output.log,
              (Messages{"line FirmwareDownloader::OnReceive DOWNLOAD_OK", "submit " + std::string(Done)}));
    EXPECT_EQ(dialogue.CurrentState(), State::SendingImage);

    Forget();
    Receive(dialogue, "REBOOTING");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive REBOOTING",
                                    "line FirmwareDownloader::OnReceive() REBOOTING received", "completed"}));
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AnyOtherTextWhileSendingEndsItWithoutALine)
{
    for (const char* reply : {"RECEIVE_READY 100 4000", "DENY", "DOWNLOAD_O", "?"}) {
        StartSending(100);
        Receive(dialogue, reply);
        EXPECT_EQ(output.log, Messages{"completed"}) << reply;
        ExpectEnded();
    }
}

TEST_F(FirmwareDialogue, AnyTextWhileIdleCompletes)
{
    for (const char* reply : {"RECEIVE_READY 0 4000", "DOWNLOAD_OK", "hello"}) {
        Receive(dialogue, reply);
        EXPECT_EQ(output.log, Messages{"completed"}) << reply;
        ExpectEnded();
        Forget();
    }
}

TEST_F(FirmwareDialogue, CanBeStartedAgainAfterItsEndAndThenSendsTheWholeImage)
{
    StartSending(7981);
    Receive(dialogue, "DOWNLOAD_FAIL");
    StartSending(7981);
    Receive(dialogue, "DOWNLOAD_OK");
    Receive(dialogue, "DOWNLOAD_OK");
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages, (Messages{Chunk(image, 3990, 3990), Chunk(image, 7980, 1), std::string(Done)}));
}

TEST_F(FirmwareDialogue, ResetForgetsADialogueUnderWayWithoutCompleting)
{
    StartSending(100);
    dialogue.Reset();
    EXPECT_EQ(dialogue.CurrentState(), State::Idle);
    EXPECT_TRUE(output.log.empty());
}

TEST_F(FirmwareDialogue, UnqueuedAllIsSubmittedAtOnceAndDownloadOkCompletes)
{
    dialogue.SwitchQueuedModeOff();
    StartWith(100);
    Receive(dialogue, "RECEIVE_READY 100 69");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive RECEIVE_READY", "clear",
                                    "line FirmwareDownloader::DownloadImage() Firmware image download...",
                                    "chunk 0 60", "submit " + Chunk(image, 0, 60), "chunk 60 40",
                                    "submit " + Chunk(image, 60, 40), "submit " + std::string(Done)}));
    EXPECT_EQ(dialogue.CurrentState(), State::SendingImage);
    Forget();
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.log, (Messages{"line FirmwareDownloader::OnReceive DOWNLOAD_OK", "completed"}));
    ExpectEnded();
}

TEST_F(FirmwareDialogue, AnUnqueuedDownloadKeepsTheChunksOfABrokenOffOne)
{
    StartSending(7981);
    const FirmwareImagePtr first = image;
    Receive(dialogue, "DOWNLOAD_FAIL");
    dialogue.SwitchQueuedModeOff();
    StartWith(10);
    Receive(dialogue, "RECEIVE_READY 10 4000");
    EXPECT_EQ(output.messages, (Messages{Chunk(image, 0, 10), std::string(Done)}));
    Forget();
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages, Messages{Chunk(first, 3990, 3990)});
}

TEST_F(FirmwareDialogue, AnImageReplacedInTheMiddleDoesNotChangeTheDownloadUnderWay)
{
    StartSending(7981);
    const FirmwareImagePtr first = image;
    Load(dialogue, MakeImage(7981, 2));
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages, Messages{Chunk(first, 3990, 3990)});
    dialogue.SetImage(nullptr);
    EXPECT_FALSE(dialogue.HasImage());
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages.back(), Chunk(first, 7980, 1));
}

TEST_F(FirmwareDialogue, AfterTheClosingMessageTheReplacedImageIsLetGo)
{
    StartSending(100);
    const std::weak_ptr<const FirmwareImage> watched = image;
    image.reset();
    dialogue.SetImage(nullptr);
    EXPECT_FALSE(watched.expired());
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages, Messages{std::string(Done)});
    EXPECT_TRUE(watched.expired());
}

TEST_F(FirmwareDialogue, WithoutAnImageOnlyTheClosingMessageGoesOut)
{
    StartWith(100);
    dialogue.SetImage(nullptr);
    Receive(dialogue, "RECEIVE_READY 100 4000");
    EXPECT_EQ(output.messages, Messages{std::string(Done)});
    EXPECT_EQ(output.chunkLines, 0U);
}

TEST_F(FirmwareDialogue, RunningOutOfMemoryAtAnyMessageEndsItLikeARefusal)
{
    for (const bool queued : {true, false}) {
        bool failed = true;
        for (std::int32_t calls = 0; failed; ++calls) {
            Recorder failing;
            failing.callsUntilFailure = calls;
            DownloadDialogue broken(failing, failing);
            if (!queued) {
                broken.SwitchQueuedModeOff();
            }
            Load(broken, MakeImage(100));
            broken.Start(0);
            Receive(broken, "RECEIVE_READY 100 69");
            Receive(broken, "DOWNLOAD_OK");
            Receive(broken, "DOWNLOAD_OK");
            failed = failing.callsUntilFailure < 0;
            if (failed) {
                EXPECT_EQ(broken.CurrentState(), State::Idle) << calls;
                EXPECT_GE(failing.Count("completed"), 1U) << calls;
            } else {
                EXPECT_EQ(calls, 5); // one call each: prepare, clear, two chunks, closing message
            }
        }
    }
}

} // namespace
