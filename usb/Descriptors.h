// What a USB device says of itself: device, string and configuration descriptors. Portable and pure.
//
// The bytes come from outside and are not to be trusted: lengths may be 0 or reach past the end, counts may lie.
// Nothing here reads outside the span it is given, and every walk ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace usb {

using ByteSpan = std::span<const std::uint8_t>;

/// A descriptor's second byte.
enum class DescriptorType : std::uint8_t { Device = 1, Configuration, String, Interface, Endpoint };

/// The low two bits of an endpoint's attributes.
enum class TransferType : std::uint8_t { Control = 0, Isochronous = 1, Bulk = 2, Interrupt = 3 };

inline constexpr std::size_t DeviceDescriptorSize = 18;
inline constexpr std::size_t ConfigurationHeadSize = 9;
inline constexpr std::size_t StringHeadSize = 2;
/// Descriptors that are stepped over in search of an interface's endpoints; then the search is given up.
inline constexpr std::size_t MaximumForeignDescriptors = 12;
inline constexpr std::uint16_t EnglishUnitedStates = 0x0409;

struct DeviceDescriptor
{
    std::uint16_t usbVersion = 0;
    std::uint8_t deviceClass = 0;
    std::uint8_t deviceSubclass = 0;
    std::uint8_t protocol = 0;
    std::uint8_t maximumPacketSize0 = 0; // of endpoint 0
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint16_t deviceVersion = 0;
    std::uint8_t manufacturerString = 0; // string indices; 0: no such string
    std::uint8_t productString = 0;
    std::uint8_t serialNumberString = 0;
    std::uint8_t configurations = 0;
};

struct EndpointDescriptor
{
    std::uint8_t length = 0;
    std::uint8_t type = 0;
    std::uint8_t address = 0; // bit 7: IN
    std::uint8_t attributes = 0;
    std::uint16_t maximumPacket = 0; // as sent: size in bits 0 to 10, further packets per micro-frame in 11 and 12
    std::uint8_t interval = 0;

    TransferType Kind() const noexcept { return static_cast<TransferType>(attributes & 3u); }
    bool IsIn() const noexcept { return (address & 0x80u) != 0; }
    std::uint32_t PacketsPerMicroFrame() const noexcept { return ((maximumPacket >> 11) & 3u) + 1u; }
    /// Bytes of one micro-frame.
    std::uint32_t MaximumPacketSize() const noexcept { return (maximumPacket & 0x7FFu) * PacketsPerMicroFrame(); }
};

struct InterfaceDescription
{
    std::uint8_t number = 0;
    std::uint8_t alternateSetting = 0;
    std::uint8_t announcedEndpoints = 0;
    std::uint8_t interfaceClass = 0;
    std::uint8_t interfaceSubclass = 0;
    std::uint8_t protocol = 0;
    std::uint8_t nameString = 0;
    std::vector<EndpointDescriptor> endpoints; // at most as many as announced
};

struct ConfigurationDescription
{
    std::uint16_t totalLength = 0; // as announced
    std::uint8_t announcedInterfaces = 0;
    std::uint8_t value = 0;
    std::uint8_t nameString = 0;
    std::uint8_t attributes = 0;
    std::uint8_t maximumPower = 0;                // in units of 2 mA
    std::vector<InterfaceDescription> interfaces; // in the order they stand in, alternate settings one by one

    /// The interface numbered `number` at `alternateSetting`; failing that the first of that number; failing that
    /// the first of all; null when there is none. A negative setting matches none.
    const InterfaceDescription* Select(std::uint8_t number, int alternateSetting) const noexcept;
};

/// None unless `bytes` begin with a whole device descriptor.
std::optional<DeviceDescriptor> ParseDevice(ByteSpan bytes);

/// How many bytes the whole configuration says it has; none unless `bytes` begin with a configuration's head.
std::optional<std::uint16_t> ConfigurationLength(ByteSpan bytes);

/// Interfaces and endpoints of a configuration, as far as the bytes make sense. None unless `bytes` begin with a
/// configuration's head.
std::optional<ConfigurationDescription> ParseConfiguration(ByteSpan bytes);

/// How many bytes a string descriptor says it has; 0 when `bytes` do not begin with a string descriptor's head.
std::uint8_t StringLength(ByteSpan bytes);

/// The language to ask for strings in: English (United States) when listed, else the first one listed, none when
/// the list is empty. `bytes`: string descriptor 0.
std::optional<std::uint16_t> ChooseLanguage(ByteSpan bytes);

/// The text of a string descriptor, up to its first zero; empty when it is none. At most 126 units.
std::u16string ParseString(ByteSpan bytes);

} // namespace usb
