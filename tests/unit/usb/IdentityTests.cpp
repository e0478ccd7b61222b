// What an open instrument and its driver tell: identifiers, strings, configurations, endpoints.
#include "tests/unit/usb/UsbFixture.h"
#include "usb/ControlCodes.h"
#include "usb/EndPointKinds.h"

#include <string>

namespace usbtest {

namespace describe = instrumentbus::describe;

constexpr std::uint8_t DeviceType = 1;
constexpr std::uint8_t ConfigurationType = 2;
constexpr std::uint8_t StringType = 3;

class Identity : public UsbTest
{
protected:
    /// Addresses of the endpoint list after the control endpoint; -1 for an empty slot.
    std::vector<int> Addresses() const
    {
        std::vector<int> result;
        for (std::size_t i = 1; i < device.EndpointCount(); ++i) {
            result.push_back(device.Endpoint(i) == nullptr ? -1 : device.Endpoint(i)->Address());
        }
        return result;
    }

    static instrumentbus::Description WithConfiguration(Bytes bytes)
    {
        instrumentbus::Description description = Instrument();
        description.Raw(ConfigurationType) = std::move(bytes);
        return description;
    }
};

TEST_F(Identity, TheDeviceDescriptorIsRead)
{
    Connect(Instrument(0x1E4F, 0x0301));
    EXPECT_EQ(device.VendorId(), 0x1E4F);
    EXPECT_EQ(device.ProductId(), 0x0301);
    EXPECT_EQ(device.Identity().descriptor.usbVersion, 0x0200);
    EXPECT_EQ(device.Identity().descriptor.deviceClass, 0xFF);
    EXPECT_EQ(device.Identity().descriptor.deviceVersion, 0x1234);
    EXPECT_EQ(device.Identity().descriptor.configurations, 1);
}

TEST_F(Identity, TheDriverTellsAddressNameVersionsAndSpeed)
{
    Connect();
    EXPECT_EQ(device.Identity().address, 5);
    EXPECT_STREQ(device.Identity().friendlyName.data(), "Simulated instrument");
    EXPECT_EQ(device.Identity().driverVersion, 0x01020304u);
    EXPECT_EQ(device.Identity().stackVersion, 0x00000200u);
    EXPECT_TRUE(device.Identity().highSpeed);
    EXPECT_EQ(device.LastByteCount(), 1u) << "of the alternate setting, which is asked for last";
}

TEST_F(Identity, OnlySpeedTwoIsHighSpeed)
{
    for (std::uint32_t speed : {0u, 1u, 3u, 0x0102u}) {
        instrumentbus::Description description = Instrument();
        description.speed = speed;
        Connect(description);
        EXPECT_FALSE(device.Identity().highSpeed) << speed;
    }
}

TEST_F(Identity, AFriendlyNameWithoutAnEndIsCut)
{
    instrumentbus::Description description = Instrument();
    description.friendlyName = std::string(256, 'n');
    Connect(description);
    EXPECT_EQ(std::string(device.Identity().friendlyName.data()), std::string(255, 'n'));
}

TEST_F(Identity, WhatTheDriverRefusesOrCutsIsZeroAndOpeningWorks)
{
    for (std::uint32_t code : {usb::ControlDeviceAddress, usb::ControlFriendlyName, usb::ControlDriverVersion,
                               usb::ControlStackVersion, usb::ControlBusSpeed})
    {
        Rule rule = ForControl(code, code == usb::ControlStackVersion ? Action::Shorten : Action::Fail);
        rule.status = 0xC0000001;
        rule.length = 3;
        bus.SetRule(rule);
    }
    Connect();
    EXPECT_EQ(device.Identity().address, 0);
    EXPECT_STREQ(device.Identity().friendlyName.data(), "");
    EXPECT_EQ(device.Identity().driverVersion, 0u);
    EXPECT_EQ(device.Identity().stackVersion, 0u) << "three bytes of four";
    EXPECT_FALSE(device.Identity().highSpeed);
    EXPECT_EQ(Addresses(), (std::vector<int>{Out, In}));
}

TEST_F(Identity, TheStringsAreReadInEnglish)
{
    Connect();
    EXPECT_STREQ(device.Identity().manufacturer.data(), L"Morvane");
    EXPECT_STREQ(device.Identity().product.data(), L"Instrument");
    EXPECT_STREQ(device.Identity().serialNumber.data(), L"0001");
}

TEST_F(Identity, EnglishIsChosenAmongSeveralLanguages)
{
    instrumentbus::Description description = Instrument();
    description.Raw(StringType) = describe::Text(u"\x0407\x0409");
    description.descriptors.push_back({StringType, 2, 0x0407, describe::Text(u"Messger\x00E4t")});
    Connect(description);
    EXPECT_STREQ(device.Identity().product.data(), L"Instrument");
}

TEST_F(Identity, TheFirstLanguageIsChosenWhenEnglishIsNotListed)
{
    instrumentbus::Description description = Instrument();
    description.Raw(StringType) = describe::Text(u"\x0407\x040C");
    description.descriptors.push_back({StringType, 2, 0x0407, describe::Text(u"Messger\x00E4t")});
    Connect(description);
    EXPECT_STREQ(device.Identity().product.data(), L"Messger\x00E4t");
    EXPECT_STREQ(device.Identity().manufacturer.data(), L"") << "exists in English only";
}

TEST_F(Identity, WithoutALanguageThereAreNoStrings)
{
    for (const Bytes& list : {describe::Text(u""), Bytes{}, Bytes{0, 3}, Bytes{1, 3}, Bytes{4, 9, 9, 4}, Bytes{4}})
    {
        instrumentbus::Description description = Instrument();
        description.Raw(StringType) = list;
        Connect(description);
        EXPECT_STREQ(device.Identity().product.data(), L"");
    }
}

TEST_F(Identity, AStringIndexOfZeroMeansNoString)
{
    instrumentbus::Description description = Instrument();
    description.Raw(DeviceType)[15] = 0;
    Connect(description);
    EXPECT_STREQ(device.Identity().product.data(), L"");
    EXPECT_STREQ(device.Identity().serialNumber.data(), L"0001");
}

TEST_F(Identity, AStringThatTheDeviceDoesNotHaveIsEmpty)
{
    instrumentbus::Description description = Instrument();
    description.Raw(DeviceType)[15] = 9;
    Connect(description);
    EXPECT_STREQ(device.Identity().product.data(), L"");
}

TEST_F(Identity, TheLongestStringAndOneWithAnOddLengthAreRead)
{
    instrumentbus::Description description = Instrument();
    description.Raw(StringType, 2) = describe::Text(std::u16string(126, u'x'));
    description.Raw(StringType, 3) = Bytes{7, 3, 'a', 0, 'b', 0, 'c'};
    Connect(description);
    EXPECT_EQ(std::wstring(device.Identity().product.data()), std::wstring(126, L'x'));
    EXPECT_STREQ(device.Identity().serialNumber.data(), L"ab");
}

TEST_F(Identity, AStringShorterThanItSaysIsLeftOut)
{
    instrumentbus::Description description = Instrument();
    description.Raw(StringType, 2) = Bytes{40, 3, 'a', 0, 'b', 0};
    Connect(description);
    EXPECT_STREQ(device.Identity().product.data(), L"");
}

TEST_F(Identity, TheConfigurationAndItsEndpointsAreRead)
{
    Connect(InstrumentWith({describe::Endpoint(0x81, 3, 8), describe::Endpoint(0x02),
                            describe::Endpoint(0x83, 1, 0x1400), describe::Endpoint(0x04, 0, 64)}));
    ASSERT_EQ(device.EndpointCount(), 5u);
    EXPECT_EQ(device.Endpoint(0)->Address(), 0);
    EXPECT_EQ(device.Endpoint(0)->Descriptor().MaximumPacketSize(), 64u);
    EXPECT_NE(dynamic_cast<CCyControlEndPoint*>(device.Endpoint(0)), nullptr);
    EXPECT_NE(dynamic_cast<CCyInterruptEndPoint*>(device.Endpoint(1)), nullptr);
    EXPECT_NE(dynamic_cast<CCyBulkEndPoint*>(device.Endpoint(2)), nullptr);
    EXPECT_NE(dynamic_cast<CCyIsocEndPoint*>(device.Endpoint(3)), nullptr);
    EXPECT_NE(dynamic_cast<CCyControlEndPoint*>(device.Endpoint(4)), nullptr);
    EXPECT_EQ(device.Endpoint(1)->Attributes(), 3);
    EXPECT_TRUE(device.Endpoint(1)->IsIn());
    EXPECT_FALSE(device.Endpoint(2)->IsIn());
    EXPECT_EQ(device.Endpoint(3)->Descriptor().MaximumPacketSize(), 3072u);
    EXPECT_EQ(device.Endpoint(3)->Descriptor().PacketsPerMicroFrame(), 3u);
    EXPECT_EQ(device.Endpoint(2)->Descriptor().length, 7);
    EXPECT_EQ(device.Endpoint(2)->Descriptor().type, 5);
    EXPECT_EQ(device.Endpoint(2)->Timeout(), 10000u);
    EXPECT_TRUE(device.Endpoint(2)->IsDirect());
    ASSERT_EQ(device.ConfigurationCount(), 1u);
    EXPECT_EQ(device.Configuration(0).raw.size(), 9u + 9u + 4u * 7u);
}

TEST_F(Identity, UnusualAttributeBitsKeepTheKindOfEndpointAndAreTold)
{
    Connect(InstrumentWith({describe::Endpoint(0x83, 0x0D), describe::Endpoint(0x04, 0xFE)}));
    EXPECT_NE(dynamic_cast<CCyIsocEndPoint*>(device.Endpoint(1)), nullptr);
    EXPECT_NE(dynamic_cast<CCyBulkEndPoint*>(device.Endpoint(2)), nullptr);
    EXPECT_EQ(device.Endpoint(1)->Attributes(), 0x0D);
    EXPECT_EQ(device.Endpoint(2)->Attributes(), 0xFE);
}

TEST_F(Identity, AnInstrumentWithoutConfigurationDoesNotOpen)
{
    instrumentbus::Description none = Instrument();
    none.Raw(DeviceType) = describe::Device(0x1E4F, 0x0100, 0);
    bus.Plug(0, none);
    EXPECT_FALSE(device.Open(0));
    EXPECT_FALSE(device.IsOpen());
    EXPECT_EQ(device.EndpointCount(), 0u);
    EXPECT_TRUE(bus.WaitFor(0, 0, [](const Counters& c) { return c.opens == 1 && c.closes == 1; }));
}

TEST_F(Identity, AConfigurationThatCannotBeReadOrUnderstoodCountsAsNone)
{
    const Bytes whole = describe::Configuration(describe::Interface(0, 0, 0));
    Bytes longerThanItIs = whole;
    longerThanItIs[2] = 200;
    for (const Bytes& bytes : {Bytes{}, Bytes(whole.begin(), whole.begin() + 8), Bytes(18, 0), Bytes(18, 0xFF),
                               longerThanItIs, Bytes{9, 2, 0, 0, 1, 1, 0, 0, 0}, Bytes{9, 3, 9, 0, 1, 1, 0, 0, 0}})
    {
        bus.Plug(0, WithConfiguration(bytes));
        EXPECT_FALSE(device.Open(0)) << testing::PrintToString(bytes);
        EXPECT_FALSE(device.IsOpen());
    }
}

TEST_F(Identity, AnInstrumentWithoutADeviceDescriptorDoesNotOpen)
{
    for (const Bytes& bytes : {Bytes{}, Bytes(17, 1), Bytes(18, 0), Bytes(18, 0xFF)}) {
        instrumentbus::Description description = Instrument();
        description.Raw(DeviceType) = bytes;
        bus.Plug(0, description);
        EXPECT_FALSE(device.Open(0));
    }
}

TEST_F(Identity, TwoConfigurationsAreKeptOfThoseAnnounced)
{
    instrumentbus::Description description = Instrument();
    description.Raw(DeviceType) = describe::Device(0x1E4F, 0x0100, 255);
    const auto second = describe::Joined({describe::Interface(0, 0, 1), describe::Endpoint(0x04)});
    for (std::uint8_t index = 1; index < 4; ++index) {
        description.descriptors.push_back({ConfigurationType, index, 0, describe::Configuration(second)});
    }
    Connect(description);
    EXPECT_EQ(device.ConfigurationCount(), 2u);
    EXPECT_EQ(Addresses(), (std::vector<int>{Out, In})) << "of the first";
    EXPECT_EQ(device.Configuration(1).endpoints.size(), 1u);
}

TEST_F(Identity, TheSecondConfigurationServesWhenTheFirstCannotBeRead)
{
    instrumentbus::Description description = Instrument();
    description.Raw(DeviceType) = describe::Device(0x1E4F, 0x0100, 2);
    const Bytes good = description.Raw(ConfigurationType);
    description.Raw(ConfigurationType) = Bytes{};
    description.descriptors.push_back({ConfigurationType, 1, 0, good});
    Connect(description);
    EXPECT_EQ(device.ConfigurationCount(), 1u);
    EXPECT_EQ(Addresses(), (std::vector<int>{Out, In}));
}

TEST_F(Identity, InterfaceZeroIsSelectedWhereverItStands)
{
    Connect(WithConfiguration(
        describe::Configuration(describe::Joined({describe::Interface(1, 0, 1), describe::Endpoint(0x81),
                                                  describe::Interface(0, 0, 1), describe::Endpoint(0x02)}))));
    EXPECT_EQ(Addresses(), std::vector<int>{0x02});
}

TEST_F(Identity, WithoutInterfaceZeroTheFirstIsSelected)
{
    Connect(WithConfiguration(describe::Configuration(describe::Joined(
        {describe::Interface(3, 0, 1), describe::Endpoint(0x81), describe::Interface(4, 0, 0)}))));
    EXPECT_EQ(Addresses(), std::vector<int>{0x81});
}

TEST_F(Identity, WithoutAnyInterfaceThereIsOnlyTheControlEndpoint)
{
    Connect(WithConfiguration(describe::Configuration({})));
    EXPECT_EQ(device.EndpointCount(), 1u);
}

TEST_F(Identity, TheDriverTellsTheAlternateSetting)
{
    instrumentbus::Description description = WithConfiguration(describe::Configuration(
        describe::Joined({describe::Interface(0, 0, 1), describe::Endpoint(0x02), describe::Interface(0, 1, 2),
                          describe::Endpoint(0x04), describe::Endpoint(0x86)})));
    description.alternateSetting = 1;
    Connect(description);
    EXPECT_EQ(device.AlternateSetting(), 1);
    EXPECT_EQ(Addresses(), (std::vector<int>{0x04, 0x86}));
}

TEST_F(Identity, AnUnknownAlternateSettingIsMinusOneAndTheFirstIsTaken)
{
    Rule rule = ForControl(usb::ControlAlternateSetting, Action::Fail);
    rule.status = 0xC0000001;
    bus.SetRule(rule);
    instrumentbus::Description description = WithConfiguration(
        describe::Configuration(describe::Joined({describe::Interface(0, 2, 1), describe::Endpoint(0x02),
                                                  describe::Interface(0, 255, 1), describe::Endpoint(0x04)})));
    Connect(description);
    EXPECT_EQ(device.AlternateSetting(), -1);
    EXPECT_EQ(Addresses(), std::vector<int>{0x02});
}

TEST_F(Identity, TheThirteenthForeignDescriptorEndsTheInterface)
{
    Bytes interfaceBytes = describe::Interface(0, 0, 2);
    for (int i = 0; i < 12; ++i) {
        interfaceBytes = describe::Joined({interfaceBytes, {3, 0x24, 0}});
    }
    Connect(WithConfiguration(describe::Configuration(
        describe::Joined({interfaceBytes, describe::Endpoint(0x02), describe::Endpoint(0x86)}))));
    EXPECT_EQ(Addresses(), (std::vector<int>{0x02, 0x86}));

    Connect(WithConfiguration(describe::Configuration(
        describe::Joined({interfaceBytes, describe::Endpoint(0x02), {3, 0x24, 0}, describe::Endpoint(0x86)}))));
    EXPECT_EQ(Addresses(), (std::vector<int>{0x02, -1})) << "the remaining slot is left empty";
}

TEST_F(Identity, EndpointsAnnouncedButNotThereLeaveEmptySlots)
{
    Connect(WithConfiguration(
        describe::Configuration(describe::Joined({describe::Interface(0, 0, 255), describe::Endpoint(0x02)}))));
    ASSERT_EQ(device.EndpointCount(), 256u);
    EXPECT_EQ(device.Endpoint(1)->Address(), 0x02);
    EXPECT_EQ(device.Endpoint(2), nullptr);
    EXPECT_EQ(device.Endpoint(255), nullptr);
}

TEST_F(Identity, EndpointsThereButNotAnnouncedAreLeftOut)
{
    Connect(WithConfiguration(describe::Configuration(
        describe::Joined({describe::Interface(0, 0, 1), describe::Endpoint(0x02), describe::Endpoint(0x86)}))));
    EXPECT_EQ(Addresses(), std::vector<int>{0x02});
}

TEST_F(Identity, TheLongestConfigurationIsReadWhole)
{
    Bytes interfaces =
        describe::Joined({describe::Interface(0, 0, 2), describe::Endpoint(0x02), describe::Endpoint(0x86)});
    interfaces.resize(65'535 - 9, 2); // "two bytes of type two", to the end
    Connect(WithConfiguration(describe::Configuration(interfaces)));
    EXPECT_EQ(device.Configuration(0).raw.size(), 65'535u);
    EXPECT_EQ(Addresses(), (std::vector<int>{Out, In}));
}

TEST_F(Identity, AnAnswerThatIsShorterThanAskedForCountsAsNone)
{
    // The device descriptor cut by one byte, as the driver reports it.
    Rule rule = ForControl(usb::ControlEndpointZero, Action::Shorten);
    rule.count = 1;
    rule.length = 17;
    bus.SetRule(rule);
    bus.Plug(0, Instrument());
    EXPECT_FALSE(device.Open(0));
}

} // namespace usbtest
