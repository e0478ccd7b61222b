// Payloads of a measurement: each tells its place in the sequence and who it belongs to, so that what is lost,
// comes twice, is out of order, changed or delivered to the wrong port can be told apart. Portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace sequenced {

/// Bytes that carry the sequence number (6, low byte first) and the mark (2, low byte first). Shorter payloads
/// carry what fits.
inline constexpr std::size_t MarkedLength = 8;
inline constexpr unsigned NumberBits = 48;

constexpr std::uint8_t ByteAt(std::size_t at, std::uint64_t number, std::uint16_t mark) noexcept
{
    constexpr std::uint64_t NumberMask = (std::uint64_t{1} << NumberBits) - 1;
    const std::uint64_t label = (number & NumberMask) | static_cast<std::uint64_t>(mark) << NumberBits;
    return static_cast<std::uint8_t>(at < MarkedLength ? label >> (8 * at) : label * 31 + at);
}

/// Fills all of `payload`: number, mark and a pattern that depends on both.
constexpr void Fill(std::span<std::uint8_t> payload, std::uint64_t number, std::uint16_t mark) noexcept
{
    for (std::size_t at = 0; at < payload.size(); ++at) {
        payload[at] = ByteAt(at, number, mark);
    }
}

/// The number in `payload`, when it is long enough to hold one and exactly what Fill makes of it and `mark`.
constexpr std::optional<std::uint64_t> NumberIn(std::span<const std::uint8_t> payload, std::uint16_t mark) noexcept
{
    if (payload.size() < MarkedLength) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (std::size_t at = NumberBits / 8; at > 0; --at) {
        number = number << 8 | payload[at - 1];
    }
    for (std::size_t at = 0; at < payload.size(); ++at) {
        if (payload[at] != ByteAt(at, number, mark)) {
            return std::nullopt;
        }
    }
    return number;
}

} // namespace sequenced
