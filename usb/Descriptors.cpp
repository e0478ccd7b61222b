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

/// Whether `bytes` begin with a descriptor of that type which has and claims at least `size` bytes.
bool BeginWith(ByteSpan bytes, DescriptorType type, std::size_t size)
{
    return bytes.size() >= size && bytes[0] >= size && bytes[1] == static_cast<std::uint8_t>(type);
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
    return BeginWith(descriptor, DescriptorType::Interface, InterfaceSize);
}

InterfaceDescription ParseInterface(ByteSpan descriptor)
{
    return {
        .number = descriptor[2],
        .alternateSetting = descriptor[3],
        .announcedEndpoints = descriptor[4],
        .interfaceClass = descriptor[5],
        .interfaceSubclass = descriptor[6],
        .protocol = descriptor[7],
        .nameString = descriptor[8],
        .endpoints = {},
    };
}

EndpointDescriptor ParseEndpoint(ByteSpan descriptor)
{
    return {
        .length = descriptor[0],
        .type = descriptor[1],
        .address = descriptor[2],
        .attributes = descriptor[3],
        .maximumPacket = Word(descriptor, 4),
        .interval = descriptor[6],
    };
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
        if (BeginWith(descriptor, DescriptorType::Endpoint, EndpointSize)) {
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
    if (!BeginWith(bytes, DescriptorType::Device, DeviceDescriptorSize)) {
        return std::nullopt;
    }
    return DeviceDescriptor{
        .usbVersion = Word(bytes, 2),
        .deviceClass = bytes[4],
        .deviceSubclass = bytes[5],
        .protocol = bytes[6],
        .maximumPacketSize0 = bytes[7],
        .vendorId = Word(bytes, 8),
        .productId = Word(bytes, 10),
        .deviceVersion = Word(bytes, 12),
        .manufacturerString = bytes[14],
        .productString = bytes[15],
        .serialNumberString = bytes[16],
        .configurations = bytes[17],
    };
}

std::optional<std::uint16_t> ConfigurationLength(ByteSpan bytes)
{
    if (!BeginWith(bytes, DescriptorType::Configuration, ConfigurationHeadSize)) {
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
    const InterfaceDescription* best = nullptr;
    for (const InterfaceDescription& candidate : interfaces) {
        if (candidate.number == number && candidate.alternateSetting == alternateSetting) {
            return &candidate;
        }
        if (best == nullptr || (candidate.number == number && best->number != number)) {
            best = &candidate;
        }
    }
    return best;
}

std::uint8_t StringLength(ByteSpan bytes)
{
    return BeginWith(bytes, DescriptorType::String, StringHeadSize) ? bytes[0] : std::uint8_t{0};
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
