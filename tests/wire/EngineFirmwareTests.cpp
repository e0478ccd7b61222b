// The bootloader's side of the firmware download.
#include "tests/wire/EngineRouter.h"

using namespace enginetest;
using instrument::FirmwareReport;

namespace {

constexpr Address Bootloader{0, 0};

Bytes ImageOf(std::size_t size)
{
    Bytes image(size);
    for (std::size_t at = 0; at < size; ++at) {
        image[at] = static_cast<std::uint8_t>(at * 7 + at / 256);
    }
    return image;
}

Bytes ChunkOf(const Bytes& image, std::size_t from, std::size_t count)
{
    Bytes chunk = Text("DOWNLOAD ");
    const auto begin = image.begin() + static_cast<std::ptrdiff_t>(from);
    chunk.insert(chunk.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
    return chunk;
}

/// Sends the whole image as the router does; returns the answers to chunks and closing message.
Strings SendImage(Router& router, const Bytes& image, std::size_t room)
{
    Strings answers;
    const auto collect = [&] {
        for (const std::string& each : router.Texts()) {
            answers.push_back(each);
        }
    };
    for (std::size_t at = 0; at < image.size(); at += room) {
        router.Write(Bootloader, ChunkOf(image, at, std::min(room, image.size() - at)));
        collect();
    }
    Bytes done = Text("DOWNLOAD_DONE\r");
    done.push_back(0);
    router.Write(Bootloader, done);
    collect();
    return answers;
}

TEST(EngineFirmware, AWholeImageIsAcceptedAndCompared)
{
    const Bytes image = ImageOf(7981);
    Router router("", image);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 7981\r");
    EXPECT_EQ(router.Texts(), Strings{"RECEIVE_READY 7981 4000\r"});
    router.now = Ms(1000);
    const Strings answers = SendImage(router, image, 3990);
    EXPECT_EQ(answers, Strings(4, "DOWNLOAD_OK\r"));
    const FirmwareReport& report = router.engine.Firmware();
    EXPECT_EQ(report.state, FirmwareReport::State::Done);
    EXPECT_EQ(report.match, FirmwareReport::Match::Same);
    EXPECT_EQ(report.chunks, 3u);
    EXPECT_EQ(report.received, 7981u);
    EXPECT_EQ(report.tooLong, 0u);
    EXPECT_EQ(report.downloads, 1u);
    EXPECT_EQ(router.engine.Counted().requests, 0u) << "the bootloader's packets are no requests";
}

TEST(EngineFirmware, AnswersGoToTheBootloadersAddress)
{
    Router router("");
    router.Write(Bootloader, "PREPARE_DOWNLOAD 10\r");
    const auto packets = router.Packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0].to, Bootloader);
}

TEST(EngineFirmware, TheScriptSetsTheChunkSize)
{
    Router router("firmware accept 1000");
    router.Write(Bootloader, "PREPARE_DOWNLOAD 10\r");
    EXPECT_EQ(router.Texts(), Strings{"RECEIVE_READY 10 1000\r"});
    router.Write(Bootloader, ChunkOf(ImageOf(992), 0, 992));
    EXPECT_EQ(router.engine.Firmware().tooLong, 1u) << "1001 bytes for a chunk size of 1000";
}

TEST(EngineFirmware, OneWrongByteIsFoundWithItsPlace)
{
    const Bytes image = ImageOf(5000);
    Bytes other = image;
    other[4321] ^= 0x10;
    Router router("", other);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 5000\r");
    router.Texts();
    SendImage(router, image, 990);
    EXPECT_EQ(router.engine.Firmware().match, FirmwareReport::Match::Different);
    EXPECT_EQ(router.engine.Firmware().firstDifference, 4321u);
}

TEST(EngineFirmware, AnImageThatIsTooShortFails)
{
    const Bytes image = ImageOf(100);
    Router router("", image);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 100\r");
    router.Texts();
    const Strings answers = SendImage(router, ImageOf(99), 990);
    EXPECT_EQ(answers.back(), "DOWNLOAD_FAIL\r");
    EXPECT_EQ(router.engine.Firmware().match, FirmwareReport::Match::Different);
    EXPECT_EQ(router.engine.Firmware().firstDifference, 99u);
}

TEST(EngineFirmware, TheRequestToPrepareCanBeRefusedInEveryWay)
{
    const auto answer = [](std::string_view script) {
        Router router(script);
        router.Write(Bootloader, "PREPARE_DOWNLOAD 100\r");
        return router.Texts();
    };
    EXPECT_EQ(answer("firmware deny"), Strings{"DENY\r"});
    EXPECT_EQ(answer("firmware wrong-echo"), Strings{"RECEIVE_READY 101 4000\r"});
    EXPECT_EQ(answer("firmware answer \"what?\""), Strings{"what?"});
    EXPECT_EQ(answer("firmware unanswered 1"), Strings{});
    EXPECT_EQ(answer("firmware accept 0"), Strings{"RECEIVE_READY 100 0\r"});
    EXPECT_EQ(answer("firmware accept -7"), Strings{"RECEIVE_READY 100 -7\r"});
}

TEST(EngineFirmware, AfterSoManyUnansweredRequestsTheNextIsAnswered)
{
    Router router("firmware unanswered 2");
    for (int i = 0; i < 3; ++i) {
        router.Write(Bootloader, "PREPARE_DOWNLOAD 100\r");
    }
    EXPECT_EQ(router.Texts(), Strings{"RECEIVE_READY 100 4000\r"});
    EXPECT_EQ(router.engine.Firmware().prepares, 3u);
}

struct AtChunk
{
    const char* what;
    Strings answers; // to chunks 1 and 2, of which the second is the special one
    Order order;
};

class EngineFirmwareAtChunk : public testing::TestWithParam<AtChunk>
{};

TEST_P(EngineFirmwareAtChunk, HappensAtThatChunk)
{
    const Bytes image = ImageOf(4000);
    Router router("firmware at 2 " + std::string(GetParam().what));
    router.Write(Bootloader, "PREPARE_DOWNLOAD 4000\r");
    router.Texts();
    router.Write(Bootloader, ChunkOf(image, 0, 990));
    router.Write(Bootloader, ChunkOf(image, 990, 990));
    EXPECT_EQ(router.Texts(), GetParam().answers);
    EXPECT_EQ(router.last, GetParam().order);
}

INSTANTIATE_TEST_SUITE_P(All, EngineFirmwareAtChunk,
                         testing::Values(AtChunk{"fail", {"DOWNLOAD_OK\r", "DOWNLOAD_FAIL\r"}, Order::Nothing},
                                         AtChunk{"ready", {"DOWNLOAD_OK\r", "FIRMWARE_READY\r"}, Order::Nothing},
                                         AtChunk{"rebooting", {"DOWNLOAD_OK\r", "REBOOTING\r"}, Order::Nothing},
                                         AtChunk{
                                             "rebooting back 5", {"DOWNLOAD_OK\r", "REBOOTING\r"}, Order::Vanish},
                                         AtChunk{"silence", {"DOWNLOAD_OK\r"}, Order::Nothing},
                                         AtChunk{"vanish back 5", {"DOWNLOAD_OK\r"}, Order::Vanish},
                                         AtChunk{"answer \"?\"", {"DOWNLOAD_OK\r", "?"}, Order::Nothing}));

TEST(EngineFirmware, WhatHappensAtAChunkHappensOnce)
{
    const Bytes image = ImageOf(2000);
    Router router("firmware at 2 vanish back 5", image);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 2000\r");
    router.Texts();
    router.Write(Bootloader, ChunkOf(image, 0, 990));
    router.Write(Bootloader, ChunkOf(image, 990, 990));
    router.Texts();
    ASSERT_EQ(router.last, Order::Vanish);
    router.now = Ms(5);
    router.Texts();
    ASSERT_EQ(router.last, Order::Return);
    router.Connect();
    router.Write(Bootloader, "PREPARE_DOWNLOAD 2000\r");
    router.Texts();
    EXPECT_EQ(SendImage(router, image, 990), Strings(4, "DOWNLOAD_OK\r"));
    EXPECT_EQ(router.engine.Firmware().match, FirmwareReport::Match::Same);
}

TEST(EngineFirmware, TheClosingMessageCanBeAnsweredWithAReboot)
{
    const Bytes image = ImageOf(100);
    Router router("firmware at done rebooting", image);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 100\r");
    router.Texts();
    EXPECT_EQ(SendImage(router, image, 990), (Strings{"DOWNLOAD_OK\r", "REBOOTING\r"}));
    EXPECT_EQ(router.engine.Firmware().state, FirmwareReport::State::Done);
}

TEST(EngineFirmware, AQuietBootloaderAnswersTheClosingMessageOnly)
{
    const Bytes image = ImageOf(5000);
    Router router("firmware quiet", image);
    router.Write(Bootloader, "PREPARE_DOWNLOAD 5000\r");
    router.Texts();
    EXPECT_EQ(SendImage(router, image, 990), Strings{"DOWNLOAD_OK\r"});
    EXPECT_EQ(router.engine.Firmware().match, FirmwareReport::Match::Same);
}

TEST(EngineFirmware, AChunkWithoutAnAcceptedRequestToPrepareFails)
{
    Router router("");
    router.Write(Bootloader, "DOWNLOAD abc");
    Bytes done = Text("DOWNLOAD_DONE\r");
    router.Write(Bootloader, done);
    EXPECT_EQ(router.Texts(), Strings(2, "DOWNLOAD_FAIL\r"));
}

TEST(EngineFirmware, ARequestToPrepareWithoutANumberIsDenied)
{
    Router router("");
    router.Write(Bootloader, "PREPARE_DOWNLOAD much\r");
    router.Write(Bootloader, "PREPARE_DOWNLOAD -5\r");
    router.Write(Bootloader, "PREPARE_DOWNLOAD 99999999999999999999999\r");
    EXPECT_EQ(router.Texts(), Strings(3, "DENY\r"));
}

TEST(EngineFirmware, UnknownMessagesAreCountedAndNotAnswered)
{
    Router router("");
    router.Write(Bootloader, "HELLO\r");
    router.Write(Bootloader, "");
    router.Write(Bootloader, "PREPARE");
    EXPECT_TRUE(router.Texts().empty());
    EXPECT_EQ(router.engine.Firmware().unknown, 3u);
}

TEST(EngineFirmware, AnswersCanBeDelayed)
{
    Router router("firmware delay 30");
    router.Write(Bootloader, "PREPARE_DOWNLOAD 1\r");
    EXPECT_TRUE(router.Texts().empty());
    router.now = Ms(30);
    EXPECT_EQ(router.Texts().size(), 1u);
}

TEST(EngineFirmware, TheSpeedIsThatFromTheFirstChunkOn)
{
    const Bytes image = ImageOf(2000);
    Router router("");
    router.Write(Bootloader, "PREPARE_DOWNLOAD 2000\r");
    EXPECT_EQ(router.engine.Firmware().BytesPerSecond(), 0.0);
    router.now = Ms(5000);
    router.Write(Bootloader, ChunkOf(image, 0, 1000));
    router.now = Ms(5500);
    router.Write(Bootloader, ChunkOf(image, 1000, 1000));
    EXPECT_DOUBLE_EQ(router.engine.Firmware().BytesPerSecond(), 4000.0);
}

} // namespace
