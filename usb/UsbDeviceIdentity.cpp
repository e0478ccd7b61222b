// What an open device and its driver tell of themselves. None of it is taken on trust; see Descriptors.h.
#include "usb/ControlCodes.h"
#include "usb/UsbDevice.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr std::uint8_t GetDescriptor = 6;
constexpr std::uint32_t DescriptorTimeout = 10000; // milliseconds
constexpr std::uint8_t InterfaceNumber = 0;

static_assert(std::endian::native == std::endian::little, "the driver's numbers are read as they stand");

} // namespace

bool UsbDevice::ReadDescriptor(usb::DescriptorType type, std::uint8_t index, std::uint16_t language,
                               std::span<std::uint8_t> bytes)
{
    CCyControlEndPoint::Request request;
    request.type = CCyControlEndPoint::RequestType::Standard;
    request.direction = CCyControlEndPoint::Direction::FromDevice;
    request.code = GetDescriptor;
    request.value = static_cast<std::uint16_t>(static_cast<unsigned>(type) << 8 | index);
    request.index = language;

    usb::RequestBlock block(bytes.size());
    block.SetHeader(
        CCyControlEndPoint::Header(request, static_cast<std::uint16_t>(bytes.size()), DescriptorTimeout));
    if (!IoControl(usb::ControlEndpointZero, block.Bytes())) {
        return false;
    }
    const std::span<const std::uint8_t> data = block.Part(usb::TransferHeaderSize, bytes.size());
    std::copy(data.begin(), data.end(), bytes.begin());
    return true;
}

void UsbDevice::ReadIdentity()
{
    std::array<std::uint8_t, usb::DeviceDescriptorSize> bytes{};
    if (ReadDescriptor(usb::DescriptorType::Device, 0, 0, bytes)) {
        m_descriptor = usb::ParseDevice(bytes).value_or(usb::DeviceDescriptor{});
    }
    if (const std::optional<std::uint16_t> language = usb::ChooseLanguage(ReadString(0, 0))) {
        ReadText(m_descriptor.manufacturerString, *language, m_manufacturer);
        ReadText(m_descriptor.productString, *language, m_product);
        ReadText(m_descriptor.serialNumberString, *language, m_serialNumber);
    }
    ReadDriverFacts();
}

std::vector<std::uint8_t> UsbDevice::ReadString(std::uint8_t index, std::uint16_t language)
{
    std::array<std::uint8_t, usb::StringHeadSize> head{};
    if (!ReadDescriptor(usb::DescriptorType::String, index, language, head)) {
        return {};
    }
    std::vector<std::uint8_t> bytes(usb::StringLength(head));
    if (bytes.size() < head.size() || !ReadDescriptor(usb::DescriptorType::String, index, language, bytes)) {
        return {};
    }
    return bytes;
}

void UsbDevice::ReadText(std::uint8_t index, std::uint16_t language, WideText& text)
{
    if (index == 0) {
        return; // the device has no such string
    }
    const std::u16string read = usb::ParseString(ReadString(index, language));
    std::copy_n(read.begin(), std::min(read.size(), text.size() - 1), text.begin());
}

void UsbDevice::ReadDriverFacts()
{
    std::array<std::uint8_t, 1> address{};
    if (IoControl(usb::ControlDeviceAddress, address)) {
        m_address = address[0];
    }
    std::array<std::uint8_t, TextRoom> name{};
    if (IoControl(usb::ControlFriendlyName, name)) {
        std::copy(name.begin(), name.end() - 1, m_friendlyName.begin());
    }
    m_driverVersion = ReadNumber(usb::ControlDriverVersion);
    m_stackVersion = ReadNumber(usb::ControlStackVersion);
    m_highSpeed = ReadNumber(usb::ControlBusSpeed) == usb::HighSpeed;
}

std::uint32_t UsbDevice::ReadNumber(std::uint32_t code)
{
    std::array<std::uint8_t, 4> bytes{};
    return IoControl(code, bytes) ? std::bit_cast<std::uint32_t>(bytes) : 0;
}

void UsbDevice::ReadConfigurations()
{
    const std::size_t count = std::min<std::size_t>(m_descriptor.configurations, MaximumConfigurations);
    for (std::size_t i = 0; i < count; ++i) {
        const auto index = static_cast<std::uint8_t>(i);
        std::array<std::uint8_t, usb::ConfigurationHeadSize> head{};
        if (!ReadDescriptor(usb::DescriptorType::Configuration, index, 0, head)) {
            continue;
        }
        std::vector<std::uint8_t> raw(usb::ConfigurationLength(head).value_or(std::uint16_t{0}));
        if (raw.empty() || !ReadDescriptor(usb::DescriptorType::Configuration, index, 0, raw)) {
            continue;
        }
        if (std::optional<usb::ConfigurationDescription> parsed = usb::ParseConfiguration(raw)) {
            m_configurations.push_back(std::make_unique<usb::ConfigurationRecord>(m_device.Get(), std::move(raw),
                                                                                  std::move(*parsed), m_limits));
        }
    }
}

void UsbDevice::SelectInterface()
{
    std::array<std::uint8_t, 1> setting{InterfaceNumber};
    m_alternateSetting = IoControl(usb::ControlAlternateSetting, setting) ? setting[0] : -1;
    m_configuration = 0;
    m_endpoints.push_back(m_control.get());
    const usb::ConfigurationRecord& configuration = *m_configurations[m_configuration];
    if (const auto* selected = configuration.Description().Select(InterfaceNumber, m_alternateSetting)) {
        const std::vector<CCyUSBEndPoint*> slots = configuration.EndpointsOf(*selected);
        m_endpoints.insert(m_endpoints.end(), slots.begin(), slots.end());
    }
}
