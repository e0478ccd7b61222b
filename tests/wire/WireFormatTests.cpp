#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes FrameOf(std::uint8_t number, std::uint8_t type, std::uint8_t x, std::uint8_t y, const Bytes& payload)
{
    const wire::Header header = wire::BuildHeader(number, type, x, y, payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    Bytes frame(header.begin(), header.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    frame.insert(frame.end(), trailer.begin(), trailer.end());
    return frame;
}

TEST(WireFormat, AnEmptyPayloadHas12HeaderBytesAndTwoZeroTrailerBytes)
{
    EXPECT_EQ(FrameOf(7, 1, 3, 2, {}), (Bytes{'#', '#', 7, 1, 0, 1, 3, 2, 0, 0, 0, 0, 0, 0}));
}

TEST(WireFormat, APayloadOf300BytesCarriesItsLengthHighByteFirst)
{
    const Bytes frame = FrameOf(0, 1, 3, 2, Bytes(300, 0xAA));
    EXPECT_EQ(frame[10], 0x01);
    EXPECT_EQ(frame[11], 0x2C);
    EXPECT_EQ(frame.size(), 314u);
}

TEST(WireFormat, OfALongerPayloadOnlyTheLow16BitsOfTheLengthGoOut)
{
    const wire::Header header = wire::BuildHeader(0, 1, 1, 1, 0x1'0203);
    EXPECT_EQ(header[10], 0x02);
    EXPECT_EQ(header[11], 0x03);
}

TEST(WireFormat, TheChecksumIsTheXorOfAllPayloadBytesForEveryLength)
{
    std::mt19937 random(1);
    for (std::size_t length = 0; length < 200; ++length) {
        Bytes payload(length);
        std::uint8_t expected = 0;
        for (std::uint8_t& byte : payload) {
            byte = static_cast<std::uint8_t>(random());
            expected = static_cast<std::uint8_t>(expected ^ byte);
        }
        EXPECT_EQ(wire::BuildTrailer(payload), (wire::Trailer{expected, 0})) << length;
    }
}

TEST(WireFormat, FindSyncFindsTheFirstPairAndNoLoneMark)
{
    EXPECT_EQ(wire::FindSync(Bytes{'#', '#'}), 0u);
    EXPECT_EQ(wire::FindSync(Bytes{'a', '#', 'b', '#', '#', '#'}), 3u);
    EXPECT_EQ(wire::FindSync(Bytes{'#', 'a', '#'}), std::nullopt);
    EXPECT_EQ(wire::FindSync(Bytes{'#'}), std::nullopt);
    EXPECT_EQ(wire::FindSync(Bytes{}), std::nullopt);
}

TEST(WireFormat, FindSyncAgreesWithALookAtEveryPosition)
{
    std::mt19937 random(2);
    for (int round = 0; round < 20'000; ++round) {
        Bytes bytes(random() % 24);
        for (std::uint8_t& byte : bytes) {
            byte = random() % 3 == 0 ? '#' : 'x';
        }
        std::optional<std::size_t> expected;
        for (std::size_t at = 0; !expected && at + 1 < bytes.size(); ++at) {
            if (bytes[at] == '#' && bytes[at + 1] == '#') {
                expected = at;
            }
        }
        ASSERT_EQ(wire::FindSync(bytes), expected);
    }
}

TEST(WireFormat, AFrameIsParsedOnlyOnceAllOfItIsThere)
{
    const Bytes frame = FrameOf(9, 1, 255, 2, {1, 2, 3});
    for (std::size_t length = 0; length < frame.size(); ++length) {
        EXPECT_FALSE(wire::ParseFrame(std::span(frame).first(length))) << length;
    }
    const auto parsed = wire::ParseFrame(frame);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->packetNumber, 9);
    EXPECT_EQ(parsed->packetType, 1);
    EXPECT_EQ(wire::Coordinate(parsed->deviceType), -1);
    EXPECT_EQ(wire::Coordinate(parsed->port), 2);
    EXPECT_EQ(Bytes(parsed->payload.begin(), parsed->payload.end()), (Bytes{1, 2, 3}));
    EXPECT_EQ(parsed->Length(), frame.size());
}

TEST(WireFormat, EveryLengthFieldUpTo65535IsTakenAtItsWord)
{
    const Bytes frame = FrameOf(1, 1, 1, 1, Bytes(65'535, 5));
    ASSERT_TRUE(wire::ParseFrame(frame));
    EXPECT_EQ(wire::ParseFrame(frame)->payload.size(), 65'535u);
    EXPECT_FALSE(wire::ParseFrame(std::span(frame).first(frame.size() - 1)));
}

// Walks over any bytes the way the receiver does, on an exactly sized heap copy that the sanitizer guards.
TEST(WireFormat, AnyBytesInAnyCutAreWalkedOverWithoutReadingOutside)
{
    std::mt19937 random(3);
    for (int round = 0; round < 3'000; ++round) {
        ReceiveBuffer buffer;
        std::size_t frames = 0;
        for (int block = 0; block < 8; ++block) {
            Bytes bytes(random() % 300);
            for (std::uint8_t& byte : bytes) {
                byte = random() % 4 == 0 ? '#' : static_cast<std::uint8_t>(random() % 4);
            }
            buffer.Append(bytes);
            while (const auto at = wire::FindSync(buffer.Bytes())) {
                buffer.Consume(*at);
                const auto frame = wire::ParseFrame(buffer.Bytes());
                if (!frame) {
                    break;
                }
                frames +=
                    std::accumulate(frame->payload.begin(), frame->payload.end(), std::size_t{1}) != 0 ? 1 : 0;
                buffer.Consume(frame->Length());
            }
        }
        ASSERT_LE(frames, 2'400u / wire::FrameOverhead);
    }
}

TEST(ReceiveBuffer, KeepsTheRestBehindTheCursorWhenMoreArrives)
{
    ReceiveBuffer buffer;
    buffer.Append(Bytes{1, 2, 3, 4});
    buffer.Consume(3);
    EXPECT_EQ(buffer.Size(), 1u);
    buffer.Append(Bytes{5});
    EXPECT_EQ(buffer.Bytes()[0], 4);
    EXPECT_EQ(buffer.Bytes()[1], 5);
    buffer.Consume(2);
    EXPECT_EQ(buffer.Size(), 0u);
}

} // namespace
