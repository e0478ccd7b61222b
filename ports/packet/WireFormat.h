// The instrument's packet format: the only place that knows an offset. Portable, without state.
//
// Offset  0, 1  sync "##"            6      DeviceType (255 on receipt: any)
//         2     PacketNumber         7      Port (255 on receipt: any)
//         3     PacketType           10, 11 PayloadLength, high byte first
//         4     0                    12     payload
//         5     1                    12+n   Checksum: XOR of the payload
//         8, 9  0                    13+n   0
#pragma once

#include "ports/packet/PortAddress.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace wire {

inline constexpr std::uint8_t SyncByte = 0x23;
inline constexpr std::size_t HeaderLength = 12;
inline constexpr std::size_t TrailerLength = 2;
inline constexpr std::size_t FrameOverhead = HeaderLength + TrailerLength;
/// Fewer buffered bytes are not looked at, not even a complete frame without payload.
inline constexpr std::size_t LeastToLookAt = 15;
inline constexpr std::uint8_t PortTraffic = 1;
inline constexpr std::uint8_t ControlPacket = 238;
inline constexpr std::uint8_t AnyAddress = 255;

using Header = std::array<std::uint8_t, HeaderLength>;
using Trailer = std::array<std::uint8_t, TrailerLength>;

/// The header of a packet to the instrument. Of a payload longer than 65,535 bytes only the low 16 bits of its
/// length go out, unchecked by design.
Header BuildHeader(std::uint8_t packetNumber, std::uint8_t packetType, std::uint8_t deviceType, std::uint8_t port,
                   std::size_t payloadLength) noexcept;

/// Checksum byte and the zero after it.
Trailer BuildTrailer(std::span<const std::uint8_t> payload) noexcept;

/// Where the first "##" begins; none when there is none. A last lone '#' is none.
std::optional<std::size_t> FindSync(std::span<const std::uint8_t> bytes) noexcept;

/// A received address byte as a coordinate: 255 means any and becomes -1.
constexpr std::int32_t Coordinate(std::uint8_t address) noexcept
{
    return address == AnyAddress ? -1 : static_cast<std::int32_t>(address);
}

/// One complete frame; `payload` borrows the bytes it was parsed from.
struct Frame
{
    std::uint8_t packetNumber;
    std::uint8_t packetType;
    std::uint8_t deviceType;
    std::uint8_t port;
    std::span<const std::uint8_t> payload;

    std::size_t Length() const noexcept { return payload.size() + FrameOverhead; }
    PortAddress Address() const noexcept { return {Coordinate(deviceType), Coordinate(port)}; }
};

/// The frame that begins at the first byte of `bytes` (which stand at a sync pair); none while it is incomplete.
std::optional<Frame> ParseFrame(std::span<const std::uint8_t> bytes) noexcept;

} // namespace wire
