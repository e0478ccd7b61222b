// What a simulated instrument says of itself: all that is plugged in with it. Portable.
#pragma once

#include "tests/instrument/InstrumentProtocol.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace instrumentbus {

using Bytes = std::vector<std::uint8_t>;

/// A raw descriptor, used unchecked.
struct Descriptor
{
    std::uint8_t type = 0; // 1 device, 2 configuration, 3 string
    std::uint8_t index = 0;
    std::uint16_t language = 0; // of strings but the first
    Bytes bytes;
};

struct Description
{
    std::vector<Descriptor> descriptors; // of several for the same question the first is told
    bool keepWritten = true;             // false: what is written is counted and dropped
    bool leavesWithHandle = false;       // unplugged when the InstrumentControl that plugged it closes
    std::uint32_t driverVersion = 0x01020304;
    std::uint32_t stackVersion = 0x00000200;
    std::uint32_t speed = 2;
    std::uint8_t deviceAddress = 5;
    std::uint8_t alternateSetting = 0;
    std::string friendlyName = "Simulated instrument"; // up to 256 bytes; 256 leave no room for a final zero

    /// The first descriptor of that kind, to be changed.
    Bytes& Raw(std::uint8_t type, std::uint8_t index = 0);
};

namespace describe {

Bytes Configuration(const Bytes& interfaces, std::uint8_t announcedInterfaces = 1);
Bytes Interface(std::uint8_t number, std::uint8_t alternateSetting, std::uint8_t announcedEndpoints);
Bytes Endpoint(std::uint8_t address, std::uint8_t attributes = 2, std::uint16_t packetSize = 512);
Bytes Device(std::uint16_t vendorId, std::uint16_t productId, std::uint8_t configurations = 1);
Bytes Text(std::u16string_view text);
Bytes Joined(std::initializer_list<Bytes> parts);

} // namespace describe

/// An instrument as the router wants it: bulk OUT 0x02, bulk IN 0x86, strings in English.
Description Instrument(std::uint16_t vendorId = 0x1E4F, std::uint16_t productId = 0x0100);

/// The same with other endpoints: `endpoints` are whole descriptors.
Description InstrumentWith(const std::vector<Bytes>& endpoints, std::uint16_t vendorId = 0x1E4F,
                           std::uint16_t productId = 0x0100);

/// As RemotePlug takes it.
Bytes Encoded(const Description& description, std::uint32_t slot);

} // namespace instrumentbus
