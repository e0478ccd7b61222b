// The numbers in the instrument's RECEIVE_READY: a word, the echoed image size, the chunk size.
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

using namespace firmwaretest;

namespace {

/// The image bytes of the first chunk after that reply, 0 when only the closing message came; none when refused.
std::optional<std::uint32_t> FirstChunk(const std::string& reply, std::uint32_t imageSize = 100)
{
    Recorder output;
    DownloadDialogue dialogue(output, output);
    Load(dialogue, MakeImage(imageSize));
    dialogue.Start(0);
    Receive(dialogue, reply);
    if (output.Count("line FirmwareDownloader::OnReceive Firmware unable to receive image") != 0) {
        EXPECT_EQ(output.log.back(), "completed");
        return std::nullopt;
    }
    const std::string& message = output.messages.back();
    return message == Done ? 0 : static_cast<std::uint32_t>(message.size() - 9);
}

TEST(FirmwareReplyNumbers, AreSeparatedByAnyBlanks)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 29"), 20U);
    EXPECT_EQ(FirstChunk(" \t\r\n\v\fRECEIVE_READY\t\n100\r\n\v\f29\r"), 20U);
}

TEST(FirmwareReplyNumbers, MayCarryASign)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY +100 +29"), 20U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 -29"), 0U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY -100 29"), std::nullopt);
}

TEST(FirmwareReplyNumbers, AreMissingWhenMoreThanOneSignStandsThere)
{
    for (const char* const chunk : {"+-29", "-+29", "++29", "--29", "+", "-", "+ 29"}) {
        EXPECT_EQ(FirstChunk(std::string("RECEIVE_READY 100 ") + chunk), std::nullopt) << chunk;
    }
}

TEST(FirmwareReplyNumbers, StopAtTheFirstByteThatIsNoDigit)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 29abc"), 20U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100,29"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100-29"), 0U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 0x64 29"), std::nullopt);
}

TEST(FirmwareReplyNumbers, AreZeroWhenMissing)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY "), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 "), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 -"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 +x"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 - 29"), std::nullopt);
    // A missing echo is zero too, which is right for an empty image, but then the chunk size is missing as well.
    EXPECT_EQ(FirstChunk("RECEIVE_READY x 29", 0), std::nullopt);
}

TEST(FirmwareReplyNumbers, FollowTheFirstWordWhicheverItIs)
{
    EXPECT_EQ(FirstChunk("OK:RECEIVE_READY 100 29"), 20U);
    EXPECT_EQ(FirstChunk("OK 100 29 RECEIVE_READY"), 20U);
    EXPECT_EQ(FirstChunk("OK RECEIVE_READY 100 29"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY100 100 29"), 20U);
}

TEST(FirmwareReplyNumbers, AWordOf100CharactersIsReadALongerOneIsRefused)
{
    const std::string padding(100 - 13, 'x');
    EXPECT_EQ(FirstChunk("RECEIVE_READY" + padding + " 100 29"), 20U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY" + padding + "x 100 29"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY" + std::string(65'000, 'x') + " 100 29"), std::nullopt);
}

TEST(FirmwareReplyNumbers, BeyondThe32BitRangeReadAsItsEnds)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 2147483647"), 100U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 2147483648"), 100U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 99999999999999999999999999999999999999"), 100U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 -2147483648"), 0U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 -99999999999999999999999999999999999999"), 0U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 " + std::string(60'000, '9')), 100U);
}

TEST(FirmwareReplyNumbers, AnEchoThatIsRightOnlyModulo32BitsIsRefused)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 4294967396 29"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY -4294967196 29"), std::nullopt);
    EXPECT_EQ(FirstChunk("RECEIVE_READY 18446744073709551716 29"), std::nullopt);
}

TEST(FirmwareReplyNumbers, AChunkSizeThatIsAMultipleOf32BitsIsNotZero)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 100 4294967296"), 100U);
}

TEST(FirmwareReplyNumbers, LeadingZerosDoNotMatter)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY 000000000000000000000100 000029"), 20U);
}

TEST(FirmwareReplyNumbers, BytesBeyondAsciiAreNoDigitsAndNoBlanks)
{
    EXPECT_EQ(FirstChunk("RECEIVE_READY\xA0 100 29"), 20U);
    EXPECT_EQ(FirstChunk("RECEIVE_READY \xB2 29"), std::nullopt);
}

} // namespace
