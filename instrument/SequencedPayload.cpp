#include "instrument/SequencedPayload.h"

namespace sequenced {

namespace {

constexpr unsigned NumberBits = 48;
constexpr std::uint64_t NumberMask = (std::uint64_t{1} << NumberBits) - 1;

std::uint8_t ByteAt(std::size_t at, std::uint64_t number, std::uint16_t mark) noexcept
{
    const std::uint64_t label = (number & NumberMask) | static_cast<std::uint64_t>(mark) << NumberBits;
    return static_cast<std::uint8_t>(at < MarkedLength ? label >> (8 * at) : label * 31 + at);
}

} // namespace

void Fill(std::span<std::uint8_t> payload, std::uint64_t number, std::uint16_t mark) noexcept
{
    for (std::size_t at = 0; at < payload.size(); ++at) {
        payload[at] = ByteAt(at, number, mark);
    }
}

std::optional<std::uint64_t> NumberIn(std::span<const std::uint8_t> payload, std::uint16_t mark) noexcept
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
