// The trace call: the one thing that every module uses. A call whose line is not wanted costs one table look-up.
#pragma once

#include <cstdint>
#include <span>
#include <string>

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

/// Reports one line on `device`'s channel in the class `classMask`. Any thread; never waits and never throws.
/// Lines beyond 2055 characters are cut. Without an installed sink nothing happens.
void Trace(std::int32_t device, std::uint32_t classMask, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

/// Renders `length` bytes for a line of that class into `out`; true when such a line is wanted. Any thread.
bool DumpPacket(std::int32_t device, std::uint32_t classMask, const std::uint8_t* data, std::uint32_t length,
                bool hexOnly, std::string& out) noexcept;

/// The same, with printable characters as they are; empty when no such line is wanted.
std::string PacketDump(std::int32_t device, std::uint32_t classMask, std::span<const std::uint8_t> bytes) noexcept;
