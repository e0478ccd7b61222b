// The address of a port.
#pragma once

#include <compare>
#include <cstdint>

/// As a client passes it to Register. A received address has -1 where the instrument wrote 255 ("any").
struct PortAddress
{
    std::int32_t deviceType = 0;
    std::int32_t port = 0;

    auto operator<=>(const PortAddress&) const = default;
};
