#include "tests/instrument/InstrumentDescription.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace instrumentbus {

namespace {

constexpr std::uint8_t DeviceType = 1;
constexpr std::uint8_t ConfigurationType = 2;
constexpr std::uint8_t StringType = 3;
constexpr std::uint16_t English = 0x0409;

std::uint8_t Low(std::size_t number)
{
    return static_cast<std::uint8_t>(number);
}

std::uint8_t High(std::size_t number)
{
    return static_cast<std::uint8_t>(number >> 8);
}

template <class T>
void Append(Bytes& bytes, const T& object)
{
    const std::size_t end = bytes.size();
    bytes.resize(end + sizeof object);
    std::memcpy(bytes.data() + end, &object, sizeof object);
}

} // namespace

namespace describe {

Bytes Joined(std::initializer_list<Bytes> parts)
{
    Bytes result;
    for (const Bytes& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

Bytes Configuration(const Bytes& interfaces, std::uint8_t announcedInterfaces)
{
    const std::size_t total = 9 + interfaces.size();
    return Joined(
        {{9, ConfigurationType, Low(total), High(total), announcedInterfaces, 1, 0, 0xC0, 50}, interfaces});
}

Bytes Interface(std::uint8_t number, std::uint8_t alternateSetting, std::uint8_t announcedEndpoints)
{
    return {9, 4, number, alternateSetting, announcedEndpoints, 0xFF, 0, 0, 0};
}

Bytes Endpoint(std::uint8_t address, std::uint8_t attributes, std::uint16_t packetSize)
{
    return {7, 5, address, attributes, Low(packetSize), High(packetSize), 0};
}

Bytes Device(std::uint16_t vendorId, std::uint16_t productId, std::uint8_t configurations)
{
    return {18,
            DeviceType,
            0,
            2,
            0xFF,
            0,
            0,
            64,
            Low(vendorId),
            High(vendorId),
            Low(productId),
            High(productId),
            0x34,
            0x12,
            1,
            2,
            3,
            configurations};
}

Bytes Text(std::u16string_view text)
{
    Bytes result{Low(2 + 2 * text.size()), StringType};
    for (const char16_t unit : text) {
        result.push_back(Low(unit));
        result.push_back(High(unit));
    }
    return result;
}

} // namespace describe

Bytes& Description::Raw(std::uint8_t type, std::uint8_t index)
{
    const auto found = std::find_if(descriptors.begin(), descriptors.end(),
                                    [&](const Descriptor& d) { return d.type == type && d.index == index; });
    if (found == descriptors.end()) {
        throw std::out_of_range("no such descriptor");
    }
    return found->bytes;
}

Description Instrument(std::uint16_t vendorId, std::uint16_t productId)
{
    return InstrumentWith({describe::Endpoint(0x02), describe::Endpoint(0x86)}, vendorId, productId);
}

Description InstrumentWith(const std::vector<Bytes>& endpoints, std::uint16_t vendorId, std::uint16_t productId)
{
    Bytes interface0 = describe::Interface(0, 0, static_cast<std::uint8_t>(endpoints.size()));
    for (const Bytes& endpoint : endpoints) {
        interface0 = describe::Joined({interface0, endpoint});
    }
    Description result;
    result.descriptors = {
        {DeviceType, 0, 0, describe::Device(vendorId, productId)},
        {ConfigurationType, 0, 0, describe::Configuration(interface0)},
        {StringType, 0, 0, describe::Text(u"\x0409")},
        {StringType, 1, English, describe::Text(u"Morvane")},
        {StringType, 2, English, describe::Text(u"Instrument")},
        {StringType, 3, English, describe::Text(u"0001")},
    };
    return result;
}

Bytes Encoded(const Description& description, std::uint32_t slot)
{
    Plug plug{};
    plug.slot = slot;
    plug.keepWritten = description.keepWritten ? 1 : 0;
    plug.leavesWithHandle = description.leavesWithHandle ? 1 : 0;
    plug.driverVersion = description.driverVersion;
    plug.stackVersion = description.stackVersion;
    plug.speed = description.speed;
    plug.deviceAddress = description.deviceAddress;
    plug.alternateSetting = description.alternateSetting;
    std::copy_n(description.friendlyName.begin(),
                std::min(description.friendlyName.size(), sizeof plug.friendlyName), plug.friendlyName);
    Bytes result;
    Append(result, plug);
    for (const Descriptor& descriptor : description.descriptors) {
        Append(result, DescriptorHead{descriptor.type, descriptor.index, descriptor.language,
                                      static_cast<std::uint32_t>(descriptor.bytes.size())});
        result.insert(result.end(), descriptor.bytes.begin(), descriptor.bytes.end());
    }
    return result;
}

} // namespace instrumentbus
