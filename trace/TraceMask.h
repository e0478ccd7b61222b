// Trace classes and channels, and the two halves of a 32-bit trace mask.
#pragma once

#include <cstdint>

/// Trace classes. Each has a display bit (low half) and the same bit shifted left by 16 for the log file; a call
/// passes both, the device's mask decides which survive.
namespace trace {
inline constexpr std::uint32_t ReadWrite = 0x00010001;
inline constexpr std::uint32_t PacketParsing = 0x00020002;
inline constexpr std::uint32_t DevicePipe = 0x00040004;
inline constexpr std::uint32_t Usb = 0x00080008;
inline constexpr std::uint32_t Dispatch = 0x00100010;
inline constexpr std::uint32_t General = 0x00200020;

/// Device numbers that are no device type: the router-wide channel and the firmware download channel.
inline constexpr std::int32_t RouterChannel = -1;
inline constexpr std::int32_t FirmwareChannel = 0;
} // namespace trace

inline constexpr std::uint32_t EveryTrace = 0xFFFFFFFF;

/// The lower half asks for the debug window, the upper one for the log file.
constexpr bool WantsWindow(std::uint32_t mask) noexcept
{
    return (mask & 0xFFFF) != 0;
}

constexpr bool WantsFile(std::uint32_t mask) noexcept
{
    return mask >= 0x10000;
}
