// What a USB device says of itself, sensible and otherwise.
#include "usb/Descriptors.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes Interface(std::uint8_t number, std::uint8_t setting, std::uint8_t endpoints)
{
    return {9, 4, number, setting, endpoints, 0xFF, 1, 2, 3};
}

Bytes Endpoint(std::uint8_t address, std::uint8_t attributes = 2, std::uint16_t packet = 512)
{
    return {7, 5, address, attributes, static_cast<std::uint8_t>(packet), static_cast<std::uint8_t>(packet >> 8),
            4};
}

Bytes Foreign(std::size_t count)
{
    Bytes result;
    for (std::size_t i = 0; i < count; ++i) {
        result = std::move(result) + Bytes{4, 0x24, 1, 2};
    }
    return result;
}

Bytes Configuration(const Bytes& body)
{
    const std::size_t total = body.size() + usb::ConfigurationHeadSize;
    return Bytes{9,    2, static_cast<std::uint8_t>(total), static_cast<std::uint8_t>(total >> 8), 1, 7, 6,
                 0xC0, 50} +
           body;
}

usb::ConfigurationDescription Parsed(const Bytes& bytes)
{
    const auto result = usb::ParseConfiguration(bytes);
    EXPECT_TRUE(result);
    return result.value_or(usb::ConfigurationDescription{});
}

std::vector<int> Addresses(const usb::InterfaceDescription& description)
{
    std::vector<int> result;
    for (const usb::EndpointDescriptor& endpoint : description.endpoints) {
        result.push_back(endpoint.address);
    }
    return result;
}

const Bytes DeviceBytes{18, 1, 0x10, 2, 0xFF, 1, 2, 64, 0x4F, 0x1E, 0x01, 0x02, 0x34, 0x12, 1, 2, 3, 2};

TEST(DeviceDescriptor, TellsEveryField)
{
    const auto device = usb::ParseDevice(DeviceBytes);
    ASSERT_TRUE(device);
    EXPECT_EQ(device->usbVersion, 0x0210);
    EXPECT_EQ(device->deviceClass, 0xFF);
    EXPECT_EQ(device->deviceSubclass, 1);
    EXPECT_EQ(device->protocol, 2);
    EXPECT_EQ(device->maximumPacketSize0, 64);
    EXPECT_EQ(device->vendorId, 0x1E4F);
    EXPECT_EQ(device->productId, 0x0201);
    EXPECT_EQ(device->deviceVersion, 0x1234);
    EXPECT_EQ(device->manufacturerString, 1);
    EXPECT_EQ(device->productString, 2);
    EXPECT_EQ(device->serialNumberString, 3);
    EXPECT_EQ(device->configurations, 2);
}

TEST(DeviceDescriptor, IsRefusedWhenShortOrOfAnotherType)
{
    for (std::size_t size = 0; size < usb::DeviceDescriptorSize; ++size) {
        EXPECT_FALSE(usb::ParseDevice(usb::ByteSpan(DeviceBytes).first(size))) << size;
    }
    Bytes otherType = DeviceBytes;
    otherType[1] = 2;
    EXPECT_FALSE(usb::ParseDevice(otherType));
    Bytes shortLength = DeviceBytes;
    shortLength[0] = 17;
    EXPECT_FALSE(usb::ParseDevice(shortLength));
}

TEST(EndpointDescriptor, PacketSizeCountsThePacketsOfAMicroFrame)
{
    usb::EndpointDescriptor endpoint;
    endpoint.maximumPacket = 512;
    EXPECT_EQ(endpoint.MaximumPacketSize(), 512u);
    EXPECT_EQ(endpoint.PacketsPerMicroFrame(), 1u);
    endpoint.maximumPacket = 0x1400; // 1024 bytes, two further packets
    EXPECT_EQ(endpoint.MaximumPacketSize(), 3072u);
    EXPECT_EQ(endpoint.PacketsPerMicroFrame(), 3u);
    endpoint.maximumPacket = 0xFFFF;
    EXPECT_EQ(endpoint.MaximumPacketSize(), 2047u * 4u);
}

TEST(Configuration, TellsItsHeadItsInterfacesAndTheirEndpoints)
{
    const auto configuration = Parsed(Configuration(Interface(0, 0, 2) + Endpoint(0x02) + Endpoint(0x86, 2, 64) +
                                                    Interface(1, 0, 1) + Endpoint(0x81, 3, 8)));
    EXPECT_EQ(configuration.value, 7);
    EXPECT_EQ(configuration.nameString, 6);
    EXPECT_EQ(configuration.attributes, 0xC0);
    EXPECT_EQ(configuration.maximumPower, 50);
    EXPECT_EQ(configuration.announcedInterfaces, 1);
    EXPECT_EQ(configuration.totalLength, 48);
    ASSERT_EQ(configuration.interfaces.size(), 2u);
    EXPECT_EQ(configuration.interfaces[0].interfaceClass, 0xFF);
    EXPECT_EQ(configuration.interfaces[0].nameString, 3);
    EXPECT_EQ(Addresses(configuration.interfaces[0]), (std::vector<int>{0x02, 0x86}));
    EXPECT_EQ(Addresses(configuration.interfaces[1]), std::vector<int>{0x81});
    const usb::EndpointDescriptor& in = configuration.interfaces[0].endpoints[1];
    EXPECT_TRUE(in.IsIn());
    EXPECT_EQ(in.Kind(), usb::TransferType::Bulk);
    EXPECT_EQ(in.MaximumPacketSize(), 64u);
    EXPECT_EQ(in.interval, 4);
    EXPECT_EQ(in.length, 7);
    EXPECT_EQ(in.type, 5);
}

TEST(Configuration, StepsOverForeignDescriptorsBetweenEndpoints)
{
    const auto configuration =
        Parsed(Configuration(Interface(0, 0, 2) + Foreign(3) + Endpoint(0x02) + Foreign(2) + Endpoint(0x86)));
    EXPECT_EQ(Addresses(configuration.interfaces.at(0)), (std::vector<int>{0x02, 0x86}));
}

TEST(Configuration, StepsOverTwelveForeignDescriptorsOfAnInterface)
{
    const auto configuration =
        Parsed(Configuration(Interface(0, 0, 2) + Foreign(6) + Endpoint(0x02) + Foreign(6) + Endpoint(0x86)));
    EXPECT_EQ(Addresses(configuration.interfaces.at(0)), (std::vector<int>{0x02, 0x86}));
}

TEST(Configuration, GivesUpAnInterfaceAtTheThirteenthForeignDescriptor)
{
    const auto configuration = Parsed(Configuration(Interface(0, 0, 2) + Foreign(6) + Endpoint(0x02) + Foreign(7) +
                                                    Endpoint(0x86) + Interface(1, 0, 1) + Endpoint(0x83)));
    EXPECT_EQ(Addresses(configuration.interfaces.at(0)), std::vector<int>{0x02});
    EXPECT_EQ(configuration.interfaces.at(0).announcedEndpoints, 2);
    EXPECT_EQ(Addresses(configuration.interfaces.at(1)), std::vector<int>{0x83});
}

TEST(Configuration, WithTooFewEndpointsTakesNoneOfTheNextInterface)
{
    const auto configuration =
        Parsed(Configuration(Interface(0, 0, 255) + Endpoint(0x02) + Interface(1, 0, 1) + Endpoint(0x86)));
    EXPECT_EQ(Addresses(configuration.interfaces.at(0)), std::vector<int>{0x02});
    EXPECT_EQ(Addresses(configuration.interfaces.at(1)), std::vector<int>{0x86});
}

TEST(Configuration, ThatAnnouncesFewerEndpointsThanItHasGivesAsManyAsAnnounced)
{
    const auto configuration = Parsed(
        Configuration(Interface(0, 0, 1) + Endpoint(0x02) + Endpoint(0x86) + Interface(1, 0, 0) + Endpoint(0x81)));
    EXPECT_EQ(Addresses(configuration.interfaces.at(0)), std::vector<int>{0x02});
    EXPECT_TRUE(configuration.interfaces.at(1).endpoints.empty());
}

TEST(Configuration, EndsAtADescriptorOfLengthZeroOrOne)
{
    for (std::uint8_t length : {std::uint8_t{0}, std::uint8_t{1}}) {
        const auto configuration = Parsed(Configuration(Interface(0, 0, 2) + Endpoint(0x02) +
                                                        Bytes{length, 5, 0x86, 2, 0, 2, 0} + Endpoint(0x83)));
        EXPECT_EQ(Addresses(configuration.interfaces.at(0)), std::vector<int>{0x02});
    }
}

TEST(Configuration, EndsAtADescriptorThatReachesBehindTheEnd)
{
    Bytes bytes = Configuration(Interface(0, 0, 2) + Endpoint(0x02) + Endpoint(0x86));
    bytes[bytes.size() - 7] = 8;
    EXPECT_EQ(Addresses(Parsed(bytes).interfaces.at(0)), std::vector<int>{0x02});
    bytes.resize(bytes.size() - 3);
    bytes[bytes.size() - 4] = 7;
    EXPECT_EQ(Addresses(Parsed(bytes).interfaces.at(0)), std::vector<int>{0x02});
}

TEST(Configuration, TakesTooShortEndpointAndInterfaceDescriptorsForForeignOnes)
{
    const auto configuration = Parsed(Configuration(Bytes{8, 4, 9, 9, 9, 9, 9, 9} + Interface(0, 0, 1) +
                                                    Bytes{6, 5, 0x86, 2, 0, 2} + Endpoint(0x02)));
    ASSERT_EQ(configuration.interfaces.size(), 1u);
    EXPECT_EQ(Addresses(configuration.interfaces[0]), std::vector<int>{0x02});
}

TEST(Configuration, ReadsNothingBehindTheLengthThatItAnnounces)
{
    Bytes bytes = Configuration(Interface(0, 0, 2) + Endpoint(0x02) + Endpoint(0x86));
    bytes[2] = static_cast<std::uint8_t>(bytes.size() - 7);
    EXPECT_EQ(Addresses(Parsed(bytes).interfaces.at(0)), std::vector<int>{0x02});
}

TEST(Configuration, OfTheGreatestLengthIsReadToItsEnd)
{
    constexpr std::size_t Greatest = 0xFFFF;
    Bytes bytes{9, 2, 0xFF, 0xFF, 255, 1, 0, 0, 0};
    std::size_t interfaces = 0;
    for (; bytes.size() + 9 <= Greatest; ++interfaces) {
        bytes = std::move(bytes) + Interface(static_cast<std::uint8_t>(interfaces), 0, 255);
    }
    const auto configuration = usb::ParseConfiguration(bytes);
    ASSERT_TRUE(configuration);
    EXPECT_EQ(configuration->interfaces.size(), interfaces);
}

TEST(Configuration, OfTheGreatestLengthHasNoMoreEndpointsThanAnnounced)
{
    Bytes bytes = Bytes{9, 2, 0xFF, 0xFF, 1, 1, 0, 0, 0} + Interface(0, 0, 255);
    while (bytes.size() < 0xFFFF) {
        bytes = std::move(bytes) + Endpoint(0x81);
    }
    const auto configuration = usb::ParseConfiguration(bytes);
    ASSERT_TRUE(configuration);
    ASSERT_EQ(configuration->interfaces.size(), 1u);
    EXPECT_EQ(configuration->interfaces[0].endpoints.size(), 255u);
}

TEST(Configuration, IsRefusedWithoutAWholeHead)
{
    const Bytes bytes = Configuration({});
    for (std::size_t size = 0; size < usb::ConfigurationHeadSize; ++size) {
        EXPECT_FALSE(usb::ParseConfiguration(usb::ByteSpan(bytes).first(size))) << size;
        EXPECT_FALSE(usb::ConfigurationLength(usb::ByteSpan(bytes).first(size))) << size;
    }
    Bytes otherType = bytes;
    otherType[1] = 1;
    EXPECT_FALSE(usb::ParseConfiguration(otherType));
    Bytes shortLength = bytes;
    shortLength[0] = 8;
    EXPECT_FALSE(usb::ParseConfiguration(shortLength));
    EXPECT_EQ(usb::ConfigurationLength(bytes), 9);
}

TEST(Configuration, SelectsTheInterfaceByNumberAndAlternateSetting)
{
    const auto configuration = Parsed(Configuration(Interface(1, 0, 0) + Interface(0, 0, 1) + Endpoint(0x02) +
                                                    Interface(0, 1, 1) + Endpoint(0x04)));
    EXPECT_EQ(Addresses(*configuration.Select(0, 1)), std::vector<int>{0x04});
    EXPECT_EQ(Addresses(*configuration.Select(0, 0)), std::vector<int>{0x02});
    EXPECT_EQ(Addresses(*configuration.Select(0, -1)), std::vector<int>{0x02})
        << "the driver did not tell a setting";
    EXPECT_EQ(Addresses(*configuration.Select(0, 9)), std::vector<int>{0x02});
    EXPECT_EQ(configuration.Select(5, 0), configuration.interfaces.data()) << "no such number: the first of all";
    EXPECT_EQ(Parsed(Configuration({})).Select(0, 0), nullptr);
}

Bytes Text(std::u16string_view text)
{
    Bytes result{static_cast<std::uint8_t>(text.size() * 2 + 2), 3};
    for (const char16_t unit : text) {
        result.push_back(static_cast<std::uint8_t>(unit));
        result.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return result;
}

TEST(Strings, LanguageIsEnglishWhenListedAnywhere)
{
    EXPECT_EQ(usb::ChooseLanguage(Text(u"\x0407\x0409\x040C")), 0x0409);
}

TEST(Strings, LanguageIsTheFirstListedWithoutEnglish)
{
    EXPECT_EQ(usb::ChooseLanguage(Text(u"\x0407\x040C")), 0x0407);
}

TEST(Strings, LanguageIsNoneWhenTheListIsEmptyOrCutShort)
{
    EXPECT_FALSE(usb::ChooseLanguage(Text(u"")));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{}));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{4}));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{4, 3, 9}));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{3, 3, 9, 4}));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{0, 3, 9, 4}));
    EXPECT_FALSE(usb::ChooseLanguage(Bytes{4, 2, 9, 4})) << "not a string descriptor";
}

TEST(Strings, TextIsReadToItsLengthOrItsFirstZero)
{
    EXPECT_EQ(usb::ParseString(Text(u"Morvane \x00E9")), u"Morvane \x00E9");
    EXPECT_EQ(usb::ParseString(Text({u"ab\0cd", 5})), u"ab");
    EXPECT_EQ(usb::ParseString(Bytes{6, 3, 'a', 0, 'b', 0, 'c', 0}), u"ab") << "bytes behind the length";
    EXPECT_EQ(usb::ParseString(Bytes{255, 3, 'a', 0, 'b', 0, 'c'}), u"ab") << "a length behind the end";
    EXPECT_EQ(usb::ParseString(Bytes{5, 3, 'a', 0, 'b', 0}), u"a") << "half a character";
    EXPECT_EQ(usb::ParseString(Bytes(255, 'x')), u"") << "not a string descriptor";
    Bytes endless(255, 'x');
    endless[0] = 255;
    endless[1] = 3;
    EXPECT_EQ(usb::ParseString(endless).size(), 126u);
}

} // namespace
