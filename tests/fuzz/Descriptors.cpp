// Any bytes as descriptors of a USB device: every walk ends inside them, and what comes out keeps its own rules.
#include "usb/Descriptors.h"
#include "tests/fuzz/Target.h"

#include <algorithm>
#include <vector>

namespace fuzz {

namespace {

using Bytes = std::vector<std::uint8_t>;

void CheckSelection(const usb::ConfigurationDescription& configuration)
{
    for (const int setting : {-1, 0, 1, 255}) {
        const usb::InterfaceDescription* const selected = configuration.Select(0, setting);
        Check((selected == nullptr) == configuration.interfaces.empty(), "one of the interfaces is selected");
        const bool exists =
            std::ranges::any_of(configuration.interfaces, [setting](const usb::InterfaceDescription& each) {
                return each.number == 0 && each.alternateSetting == setting;
            });
        Check(!exists || selected->alternateSetting == setting, "the one asked for, where there is one");
    }
}

/// The configuration that says what was understood, and nothing else.
Bytes Written(const usb::ConfigurationDescription& configuration)
{
    Bytes bytes{9, 2, 0xFF, 0xFF, configuration.announcedInterfaces, configuration.value, 0, 0, 0};
    for (const usb::InterfaceDescription& each : configuration.interfaces) {
        bytes.insert(bytes.end(), {9, 4, each.number, each.alternateSetting, each.announcedEndpoints,
                                   each.interfaceClass, each.interfaceSubclass, each.protocol, each.nameString});
        for (const usb::EndpointDescriptor& endpoint : each.endpoints) {
            bytes.insert(bytes.end(), {endpoint.length, endpoint.type, endpoint.address, endpoint.attributes,
                                       static_cast<std::uint8_t>(endpoint.maximumPacket & 0xFF),
                                       static_cast<std::uint8_t>(endpoint.maximumPacket >> 8), endpoint.interval});
            bytes.resize(bytes.size() + endpoint.length - 7u);
        }
    }
    return bytes;
}

bool AreEqual(const usb::EndpointDescriptor& one, const usb::EndpointDescriptor& other)
{
    return one.address == other.address && one.attributes == other.attributes &&
           one.maximumPacket == other.maximumPacket && one.interval == other.interval &&
           one.Kind() == other.Kind() && one.IsIn() == other.IsIn();
}

bool AreEqual(const usb::InterfaceDescription& one, const usb::InterfaceDescription& other)
{
    return one.number == other.number && one.alternateSetting == other.alternateSetting &&
           one.announcedEndpoints == other.announcedEndpoints && one.interfaceClass == other.interfaceClass &&
           one.nameString == other.nameString &&
           std::ranges::equal(one.endpoints, other.endpoints,
                              [](const auto& a, const auto& b) { return AreEqual(a, b); });
}

void CheckConfiguration(Input bytes)
{
    const auto configuration = usb::ParseConfiguration(bytes);
    Check(configuration.has_value() == usb::ConfigurationLength(bytes).has_value(),
          "a configuration has a length, and nothing else has");
    if (!configuration) {
        return;
    }
    std::size_t described = usb::ConfigurationHeadSize;
    for (const usb::InterfaceDescription& each : configuration->interfaces) {
        Check(each.endpoints.size() <= each.announcedEndpoints, "no more endpoints than announced");
        described += 9;
        for (const usb::EndpointDescriptor& endpoint : each.endpoints) {
            Check(endpoint.type == 5 && endpoint.length >= 7, "an endpoint is one");
            Check(endpoint.MaximumPacketSize() <= 2047u * 4u, "a packet has at most what the bits can say");
            described += endpoint.length;
        }
    }
    Check(described <= std::max(bytes.size(), usb::ConfigurationHeadSize),
          "no more described than there are bytes");
    CheckSelection(*configuration);

    const auto again = usb::ParseConfiguration(Written(*configuration));
    Check(again && std::ranges::equal(again->interfaces, configuration->interfaces,
                                      [](const auto& a, const auto& b) { return AreEqual(a, b); }),
          "written anew it is the same configuration");
}

void CheckStrings(Input bytes)
{
    const std::u16string text = usb::ParseString(bytes);
    Check(text.size() <= std::min<std::size_t>(126, bytes.size() / 2), "a text is no longer than its bytes");
    Check(text.find(u'\0') == std::u16string::npos, "a text ends before its first zero");
    Bytes anew{static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char16_t unit : text) {
        anew.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        anew.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    Check(usb::ParseString(anew) == text, "written anew it is the same text");
    Check(!usb::ChooseLanguage(bytes) || bytes.size() >= 4, "a language has bytes");
    Check(bytes.size() >= usb::StringHeadSize || usb::StringLength(bytes) == 0, "half a head has no length");
}

} // namespace

void Descriptors(Input input)
{
    CheckConfiguration(input);
    CheckStrings(input);
    const auto device = usb::ParseDevice(input);
    Check(!device || input.size() >= usb::DeviceDescriptorSize, "a device descriptor is whole");
    Check(!device || (device->vendorId == input[8] + 256 * input[9] && device->configurations == input[17]),
          "its fields stand where the device put them");
}

} // namespace fuzz
