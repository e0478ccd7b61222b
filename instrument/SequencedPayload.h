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

/// Fills all of `payload`: number, mark and a pattern that depends on both.
void Fill(std::span<std::uint8_t> payload, std::uint64_t number, std::uint16_t mark) noexcept;

/// The number in `payload`, when it is long enough to hold one and exactly what Fill makes of it and `mark`.
std::optional<std::uint64_t> NumberIn(std::span<const std::uint8_t> payload, std::uint16_t mark) noexcept;

} // namespace sequenced
