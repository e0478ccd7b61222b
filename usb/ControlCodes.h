// The I/O controls of the driver.
#pragma once

#include <cstdint>

namespace usb {

inline constexpr std::uint32_t ControlDriverVersion = 0x220000;    // 4 bytes
inline constexpr std::uint32_t ControlStackVersion = 0x220004;     // 4 bytes
inline constexpr std::uint32_t ControlAlternateSetting = 0x220008; // 1 byte
inline constexpr std::uint32_t ControlDeviceAddress = 0x220010;    // 1 byte
inline constexpr std::uint32_t ControlEndpointZero = 0x220020;     // request block with its data
inline constexpr std::uint32_t ControlBufferedTransfer = 0x220024; // request block with its data
inline constexpr std::uint32_t ControlResetParentPort = 0x220030;  // no data
inline constexpr std::uint32_t ControlFriendlyName = 0x220040;     // 256 bytes
inline constexpr std::uint32_t ControlAbortPipe = 0x220044;        // 1 byte: endpoint address
inline constexpr std::uint32_t ControlDirectTransfer = 0x22004B;   // request block in, data as output buffer
inline constexpr std::uint32_t ControlBusSpeed = 0x22004C;         // 4 bytes

inline constexpr std::uint32_t HighSpeed = 2;

} // namespace usb
