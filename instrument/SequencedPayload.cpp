#include "instrument/SequencedPayload.h"

namespace sequenced {

namespace {

constexpr unsigned NumberBytes = 6;
constexpr std::uint64_t NumberMask = (std::uint64_t{1} << (8 * NumberBytes)) - 1;

std::uint64_t Label(std::uint64_t number, std::uint16_t mark) noexcept
{
    return (number & NumberMask) | static_cast<std::uint64_t>(mark) << (8 * NumberBytes);
}

std::uint8_t ByteAt(std::uint64_t label, std::size_t at) noexcept
{
    if (at < MarkedLength) {
        return static_cast<std::uint8_t>(label >> (8 * at));
    }
    return static_cast<std::uint8_t>(label * 31 + at);
}

} // namespace

void Fill(std::span<std::uint8_t> payload, std::uint64_t number, std::uint16_t mark) noexcept
{
    const std::uint64_t label = Label(number, mark);
    for (std::size_t at = 0; at < payload.size(); ++at) {
        payload[at] = ByteAt(label, at);
    }
}

std::optional<std::uint64_t> NumberIn(std::span<const std::uint8_t> payload, std::uint16_t mark) noexcept
{
    if (payload.size() < MarkedLength) {
        return std::nullopt;
    }
    std::uint64_t label = 0;
    for (std::size_t at = MarkedLength; at > 0; --at) {
        label = label << 8 | payload[at - 1];
    }
    if (label >> (8 * NumberBytes) != mark) {
        return std::nullopt;
    }
    for (std::size_t at = MarkedLength; at < payload.size(); ++at) {
        if (payload[at] != ByteAt(label, at)) {
            return std::nullopt;
        }
    }
    return label & NumberMask;
}

} // namespace sequenced
