// The two halves of a 32-bit trace mask: the lower one asks for the debug window, the upper one for the log file.
#pragma once

#include <cstdint>

inline constexpr std::uint32_t EveryTrace = 0xFFFFFFFF;

constexpr bool WantsWindow(std::uint32_t mask) noexcept
{
    return (mask & 0xFFFF) != 0;
}

constexpr bool WantsFile(std::uint32_t mask) noexcept
{
    return mask >= 0x10000;
}
