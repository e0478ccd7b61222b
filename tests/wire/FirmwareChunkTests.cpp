// How an image is cut into messages, for every chunk size an instrument can name.
#include "tests/wire/FirmwareRecorder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
// Of the sanitizer's run-time library, whose header GCC does not bring.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

using namespace firmwaretest;

namespace {

constexpr std::int32_t Huge = std::numeric_limits<std::int32_t>::max();

std::vector<std::string> TakeAll(ChunkPlan plan)
{
    std::vector<std::string> messages;
    std::vector<std::uint8_t> message;
    while (plan.Take(message)) {
        messages.emplace_back(reinterpret_cast<const char*>(message.data()), message.size());
    }
    EXPECT_FALSE(plan.Take(message));
    return messages;
}

/// The image sizes of all chunks; checks the messages' other bytes.
std::vector<std::uint32_t> ChunkSizes(std::uint32_t imageSize, std::int32_t chunkSize)
{
    const FirmwareImagePtr image = MakeImage(imageSize);
    std::vector<std::string> messages = TakeAll(ChunkPlan(image, chunkSize));
    EXPECT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), Done);
    messages.pop_back();
    std::vector<std::uint32_t> sizes;
    std::uint32_t offset = 0;
    for (const std::string& message : messages) {
        const auto size = static_cast<std::uint32_t>(message.size() - 9);
        EXPECT_EQ(message, Chunk(image, offset, size));
        sizes.push_back(size);
        offset += size;
    }
    return sizes;
}

using Sizes = std::vector<std::uint32_t>;

TEST(FirmwareChunks, APlanOfNothingHasNoMessage)
{
    EXPECT_TRUE(TakeAll(ChunkPlan()).empty());
}

TEST(FirmwareChunks, TheDefaultChunkSizeOf4000Carries3990Bytes)
{
    EXPECT_EQ(ChunkSizes(7981, DownloadDialogue::DefaultChunkSize), (Sizes{3990, 3990, 1}));
}

TEST(FirmwareChunks, AChunkSizeOf1000Carries990Bytes)
{
    EXPECT_EQ(ChunkSizes(2000, 1000), (Sizes{990, 990, 20}));
}

TEST(FirmwareChunks, AnImageThatFitsExactlyHasNoEmptyLastChunk)
{
    EXPECT_EQ(ChunkSizes(7980, 4000), (Sizes{3990, 3990}));
    EXPECT_EQ(ChunkSizes(3990, 4000), (Sizes{3990}));
    EXPECT_EQ(ChunkSizes(3991, 4000), (Sizes{3990, 1}));
}

TEST(FirmwareChunks, TheRoomIsRoundedDownToEven)
{
    EXPECT_EQ(ChunkSizes(7, 12), (Sizes{2, 2, 2, 1}));
    EXPECT_EQ(ChunkSizes(7, 13), (Sizes{4, 3}));
    EXPECT_EQ(ChunkSizes(7, 14), (Sizes{4, 3}));
}

TEST(FirmwareChunks, AChunkSizeOf11IsTheSmallestThatCarriesAnything)
{
    EXPECT_EQ(ChunkSizes(5, 11), (Sizes{2, 2, 1}));
}

TEST(FirmwareChunks, ChunkSizesWithoutRoomForDataGiveTheClosingMessageOnly)
{
    for (const std::int32_t chunkSize : {10, 9, 8, 1, 0, -1, -9, -4000, std::numeric_limits<std::int32_t>::min()})
    {
        EXPECT_EQ(ChunkSizes(7981, chunkSize), Sizes{}) << chunkSize;
    }
}

TEST(FirmwareChunks, AHugeChunkSizeSendsOneChunkWithoutMoreMemory)
{
    EXPECT_EQ(ChunkSizes(7981, Huge), (Sizes{7981}));
    EXPECT_EQ(ChunkSizes(1, Huge), (Sizes{1}));

    ChunkPlan plan(MakeImage(7981), Huge);
    std::vector<std::uint8_t> message;
    ASSERT_TRUE(plan.Take(message));
    EXPECT_LE(message.capacity(), 2U * (7981 + 9));
}

TEST(FirmwareChunks, AnEmptyImageAndAMissingOneGiveTheClosingMessageOnly)
{
    EXPECT_EQ(ChunkSizes(0, 4000), Sizes{});
    EXPECT_EQ(TakeAll(ChunkPlan(nullptr, 4000)), std::vector<std::string>{std::string(Done)});
}

TEST(FirmwareChunks, AllChunksOf16MegabytesJoinToTheImage)
{
    const Sizes sizes = ChunkSizes(16U << 20, 65'535);
    EXPECT_EQ(sizes.size(), ((16U << 20) + 65'525) / 65'526);
}

class FirmwareChunkSizes : public testing::TestWithParam<std::int32_t>
{};

TEST_P(FirmwareChunkSizes, WithoutSpaceTheClosingMessageCompletesTheDialogue)
{
    Recorder output;
    DownloadDialogue dialogue(output, output);
    Load(dialogue, MakeImage(100));
    dialogue.Start(0);
    Receive(dialogue, "RECEIVE_READY 100 " + std::to_string(GetParam()));
    EXPECT_EQ(output.messages, (std::vector<std::string>{"PREPARE_DOWNLOAD 100\r", std::string(Done)}));
    EXPECT_EQ(output.chunkLines, 0U);
    EXPECT_EQ(dialogue.CurrentState(), DownloadDialogue::State::SendingImage);
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.log.back(), "completed");
}

INSTANTIATE_TEST_SUITE_P(TooSmall, FirmwareChunkSizes,
                         testing::Values(1, 9, 10, -1, -9, -2147483647, std::numeric_limits<std::int32_t>::min()));

TEST(FirmwareChunks, AMillionTinyChunksHoldNoMoreMemoryThanOne)
{
    constexpr std::uint32_t size = 2'000'000;
    Recorder output;
    output.keepChunkLines = false;
    DownloadDialogue dialogue(output, output);
    Load(dialogue, MakeImage(size));
    dialogue.Start(0);
#ifdef __SANITIZE_ADDRESS__
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
#endif
    Receive(dialogue, "RECEIVE_READY " + std::to_string(size) + " 11");
#ifdef __SANITIZE_ADDRESS__
    EXPECT_LT(__sanitizer_get_current_allocated_bytes(), before + 100'000);
#endif
    EXPECT_EQ(output.chunkLines, size / 2);
    EXPECT_EQ(output.messages.size(), 2U);
    Receive(dialogue, "DOWNLOAD_OK");
    EXPECT_EQ(output.messages.back().size(), 11U);
}

} // namespace
