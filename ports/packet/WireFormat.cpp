#include "ports/packet/WireFormat.h"

#include <cstring>

namespace wire {

namespace {

constexpr std::size_t PacketNumberAt = 2;
constexpr std::size_t PacketTypeAt = 3;
constexpr std::size_t DeviceTypeAt = 6;
constexpr std::size_t PortAt = 7;
constexpr std::size_t LengthHighAt = 10;
constexpr std::size_t LengthLowAt = 11;

std::uint8_t XorOf(std::span<const std::uint8_t> bytes) noexcept
{
    // Eight bytes at a time: the XOR of the lanes is the XOR of all bytes.
    std::uint64_t lanes = 0;
    std::size_t at = 0;
    for (; at + sizeof lanes <= bytes.size(); at += sizeof lanes) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bytes.data() + at, sizeof eight);
        lanes ^= eight;
    }
    lanes ^= lanes >> 32;
    lanes ^= lanes >> 16;
    lanes ^= lanes >> 8;
    auto result = static_cast<std::uint8_t>(lanes);
    for (; at < bytes.size(); ++at) {
        result = static_cast<std::uint8_t>(result ^ bytes[at]);
    }
    return result;
}

} // namespace

Header BuildHeader(std::uint8_t packetNumber, std::uint8_t packetType, std::uint8_t deviceType, std::uint8_t port,
                   std::size_t payloadLength) noexcept
{
    return {SyncByte,
            SyncByte,
            packetNumber,
            packetType,
            0,
            1,
            deviceType,
            port,
            0,
            0,
            static_cast<std::uint8_t>((payloadLength >> 8) & 0xFF),
            static_cast<std::uint8_t>(payloadLength & 0xFF)};
}

Trailer BuildTrailer(std::span<const std::uint8_t> payload) noexcept
{
    return {XorOf(payload), 0};
}

std::optional<std::size_t> FindSync(std::span<const std::uint8_t> bytes) noexcept
{
    // After a packet comes the next one, nearly always.
    if (bytes.size() >= 2 && bytes[0] == SyncByte && bytes[1] == SyncByte) {
        return 0;
    }
    std::size_t from = 0;
    while (from + 1 < bytes.size()) {
        const void* const hit = std::memchr(bytes.data() + from, SyncByte, bytes.size() - 1 - from);
        if (hit == nullptr) {
            return std::nullopt;
        }
        const auto at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - bytes.data());
        if (bytes[at + 1] == SyncByte) {
            return at;
        }
        // The next byte is no '#', so neither it nor this one begins a pair.
        from = at + 2;
    }
    return std::nullopt;
}

std::optional<Frame> ParseFrame(std::span<const std::uint8_t> bytes) noexcept
{
    if (bytes.size() < FrameOverhead) {
        return std::nullopt;
    }
    const std::size_t payloadLength = static_cast<std::size_t>(bytes[LengthHighAt]) << 8 | bytes[LengthLowAt];
    if (bytes.size() < payloadLength + FrameOverhead) {
        return std::nullopt;
    }
    return Frame{bytes[PacketNumberAt], bytes[PacketTypeAt], bytes[DeviceTypeAt], bytes[PortAt],
                 bytes.subspan(HeaderLength, payloadLength)};
}

} // namespace wire
