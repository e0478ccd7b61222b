// What all parts of the simulated instrument share. Portable.
#pragma once

#include <chrono>
#include <cstdint>
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

} // namespace instrument
