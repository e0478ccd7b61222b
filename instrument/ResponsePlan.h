// What a simulated instrument does about one request. Portable.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace instrument {

/// A point in time or a span of it. Points count from any fixed moment that the caller likes.
using Time = std::chrono::microseconds;
using Bytes = std::vector<std::uint8_t>;

struct Address
{
    std::uint8_t deviceType = 0;
    std::uint8_t port = 0;
    bool operator==(const Address&) const = default;
};

inline constexpr Address BroadcastAddress{255, 2};

/// The instrument goes away and, after `back`, is there again; without `back` it stays away.
struct Vanishing
{
    std::optional<std::size_t> after; // bytes of the answer that still go out; none: half of it
    std::optional<Time> back;
};

/// The answer to one request, or what happens without one; the actions of the matching rules fill it in.
struct ResponsePlan
{
    enum class Answer { Echo, Fixed, None };

    struct Extra
    {
        Address to;
        std::optional<Bytes> payload; // none: the request's payload
    };

    Answer answer = Answer::Echo;
    Bytes fixedAnswer;
    std::vector<Extra> extras; // packets after the answer
    Time delay{};
    unsigned copies = 1;
    bool wrongPayload = false;
    bool wrongChecksum = false;
    std::optional<std::uint8_t> packetNumber;
    unsigned skippedNumbers = 0;
    Bytes rawAhead;            // unframed bytes before the answer
    std::size_t garbage = 0;   // so many random bytes, without a sync pair, before those
    std::size_t splitInto = 0; // bytes of one write; 0: unsplit
    Time splitGap{};
    std::size_t mergeOf = 0; // packets of one write; 0: as they come
    Time mergeWait{};        // how long a write that is not full waits for more
    std::optional<Vanishing> vanishing;

    /// True when there is something to send even without a packet.
    bool HasSurroundings() const noexcept { return garbage != 0 || !rawAhead.empty() || vanishing.has_value(); }
};

} // namespace instrument
