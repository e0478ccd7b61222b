#include "usb/Descriptors.h"

#include <algorithm>

namespace usb {

namespace {

constexpr std::size_t InterfaceSize = 9;
constexpr std::size_t EndpointSize = 7;

std::uint16_t Word(ByteSpan bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

bool IsType(ByteSpan bytes, DescriptorType type)
{
    return bytes[1] == static_cast<std::uint8_t>(type);
}

/// The descriptor at the front of `bytes`, at least its length and type; empty at the end and when the length byte
/// is too small to get past it or reaches past the end.
ByteSpan Front(ByteSpan bytes)
{
    if (bytes.size() < 2 || bytes[0] < 2 || bytes[0] > bytes.size()) {
        return {};
    }
    return bytes.first(bytes[0]);
}

bool IsInterface(ByteSpan descriptor)
{
    return IsType(descriptor, DescriptorType::Interface) && descriptor.size() >= InterfaceSize;
}

bool IsEndpoint(ByteSpan descriptor)
{
    return IsType(descriptor, DescriptorType::Endpoint) && descriptor.size() >= EndpointSize;
}

InterfaceDescription ParseInterface(ByteSpan descriptor)
{
    InterfaceDescription result;
    result.number = descriptor[2];
    result.alternateSetting = descriptor[3];
    result.announcedEndpoints = descriptor[4];
    result.interfaceClass = descriptor[5];
    result.interfaceSubclass = descriptor[6];
    result.protocol = descriptor[7];
    result.nameString = descriptor[8];
    return result;
}

EndpointDescriptor ParseEndpoint(ByteSpan descriptor)
{
    EndpointDescriptor result;
    result.length = descriptor[0];
    result.type = descriptor[1];
    result.address = descriptor[2];
    result.attributes = descriptor[3];
    result.maximumPacket = Word(descriptor, 4);
    result.interval = descriptor[6];
    return result;
}

/// Takes the endpoints of `described` from the front of `bytes` and returns what is left: from the next interface
/// on at the latest, since the endpoints after that are not this interface's, however many were announced.
ByteSpan TakeEndpoints(ByteSpan bytes, InterfaceDescription& described)
{
    std::size_t foreign = 0;
    while (described.endpoints.size() < described.announcedEndpoints) {
        const ByteSpan descriptor = Front(bytes);
        if (descriptor.empty() || IsInterface(descriptor)) {
            break;
        }
        if (IsEndpoint(descriptor)) {
            described.endpoints.push_back(ParseEndpoint(descriptor));
        } else if (++foreign > MaximumForeignDescriptors) {
            break;
        }
        bytes = bytes.subspan(descriptor.size());
    }
    return bytes;
}

} // namespace

std::optional<DeviceDescriptor> ParseDevice(ByteSpan bytes)
{
    if (bytes.size() < DeviceDescriptorSize || bytes[0] < DeviceDescriptorSize ||
        !IsType(bytes, DescriptorType::Device))
    {
        return std::nullopt;
    }
    DeviceDescriptor result;
    result.usbVersion = Word(bytes, 2);
    result.deviceClass = bytes[4];
    result.deviceSubclass = bytes[5];
    result.protocol = bytes[6];
    result.maximumPacketSize0 = bytes[7];
    result.vendorId = Word(bytes, 8);
    result.productId = Word(bytes, 10);
    result.deviceVersion = Word(bytes, 12);
    result.manufacturerString = bytes[14];
    result.productString = bytes[15];
    result.serialNumberString = bytes[16];
    result.configurations = bytes[17];
    return result;
}

std::optional<std::uint16_t> ConfigurationLength(ByteSpan bytes)
{
    if (bytes.size() < ConfigurationHeadSize || bytes[0] < ConfigurationHeadSize ||
        !IsType(bytes, DescriptorType::Configuration))
    {
        return std::nullopt;
    }
    return Word(bytes, 2);
}

std::optional<ConfigurationDescription> ParseConfiguration(ByteSpan bytes)
{
    const std::optional<std::uint16_t> totalLength = ConfigurationLength(bytes);
    if (!totalLength) {
        return std::nullopt;
    }
    ConfigurationDescription result;
    result.totalLength = *totalLength;
    result.announcedInterfaces = bytes[4];
    result.value = bytes[5];
    result.nameString = bytes[6];
    result.attributes = bytes[7];
    result.maximumPower = bytes[8];

    bytes = bytes.first(std::min<std::size_t>(bytes.size(), *totalLength));
    for (ByteSpan descriptor = Front(bytes); !descriptor.empty(); descriptor = Front(bytes)) {
        bytes = bytes.subspan(descriptor.size());
        if (IsInterface(descriptor)) {
            result.interfaces.push_back(ParseInterface(descriptor));
            bytes = TakeEndpoints(bytes, result.interfaces.back());
        }
    }
    return result;
}

const InterfaceDescription* ConfigurationDescription::Select(std::uint8_t number,
                                                             int alternateSetting) const noexcept
{
    const auto ofNumber = [&](const InterfaceDescription& i) { return i.number == number; };
    const auto exact = [&](const InterfaceDescription& i) {
        return ofNumber(i) && i.alternateSetting == alternateSetting;
    };
    auto found = std::find_if(interfaces.begin(), interfaces.end(), exact);
    if (found == interfaces.end()) {
        found = std::find_if(interfaces.begin(), interfaces.end(), ofNumber);
    }
    if (found == interfaces.end()) {
        found = interfaces.begin();
    }
    return found == interfaces.end() ? nullptr : &*found;
}

std::uint8_t StringLength(ByteSpan bytes)
{
    return bytes.size() >= StringHeadSize && IsType(bytes, DescriptorType::String) ? bytes[0] : std::uint8_t{0};
}

std::optional<std::uint16_t> ChooseLanguage(ByteSpan bytes)
{
    const std::size_t end = std::min<std::size_t>(bytes.size(), StringLength(bytes));
    std::optional<std::uint16_t> first;
    for (std::size_t i = StringHeadSize; i + 2 <= end; i += 2) {
        const std::uint16_t language = Word(bytes, i);
        if (language == EnglishUnitedStates) {
            return language;
        }
        if (!first) {
            first = language;
        }
    }
    return first;
}

std::u16string ParseString(ByteSpan bytes)
{
    const std::size_t end = std::min<std::size_t>(bytes.size(), StringLength(bytes));
    std::u16string text;
    for (std::size_t i = StringHeadSize; i + 2 <= end && Word(bytes, i) != 0; i += 2) {
        text.push_back(static_cast<char16_t>(Word(bytes, i)));
    }
    return text;
}

} // namespace usb
