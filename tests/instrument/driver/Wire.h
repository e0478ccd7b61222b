// The driver's side of its I/O controls and of the request block. Written apart from the product's, so that the
// two check each other.
#pragma once

#include <cstdint>

namespace driver::wire {

inline constexpr std::uint32_t DriverVersion = 0x220000;
inline constexpr std::uint32_t StackVersion = 0x220004;
inline constexpr std::uint32_t AlternateSetting = 0x220008;
inline constexpr std::uint32_t DeviceAddress = 0x220010;
inline constexpr std::uint32_t EndpointZero = 0x220020;
inline constexpr std::uint32_t Buffered = 0x220024;
inline constexpr std::uint32_t ResetParentPort = 0x220030;
inline constexpr std::uint32_t FriendlyName = 0x220040;
inline constexpr std::uint32_t AbortPipe = 0x220044;
inline constexpr std::uint32_t Direct = 0x22004B;
inline constexpr std::uint32_t BusSpeed = 0x22004C;

// Offsets in the request block.
inline constexpr std::uint32_t SetupType = 0;
inline constexpr std::uint32_t SetupRequest = 1;
inline constexpr std::uint32_t SetupValue = 2;
inline constexpr std::uint32_t SetupIndex = 4;
inline constexpr std::uint32_t SetupLength = 6;
inline constexpr std::uint32_t Timeout = 8;
inline constexpr std::uint32_t Address = 13;
inline constexpr std::uint32_t NtStatus = 14;
inline constexpr std::uint32_t UsbdStatus = 18;
inline constexpr std::uint32_t IsoOffset = 22;
inline constexpr std::uint32_t IsoLength = 26;
inline constexpr std::uint32_t DataOffset = 30;
inline constexpr std::uint32_t DataLength = 34;
inline constexpr std::uint32_t HeaderSize = 38;

inline std::uint32_t Word(const std::uint8_t* bytes)
{
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8;
}

inline std::uint32_t Number(const std::uint8_t* bytes)
{
    return Word(bytes) | Word(bytes + 2) << 16;
}

inline void Put(std::uint8_t* bytes, std::uint32_t number)
{
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
}

} // namespace driver::wire
