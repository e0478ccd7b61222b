// What an open device and its driver tell of themselves. None of it is taken on trust; see Descriptors.h.
#include "usb/ControlCodes.h"
#include "usb/EndPointKinds.h"
#include "usb/UsbDevice.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace {

constexpr std::uint8_t GetDescriptor = 6;
constexpr std::uint32_t DescriptorTimeout = 10000; // milliseconds
constexpr std::uint8_t InterfaceNumber = 0;
constexpr std::size_t MaximumConfigurations = 2;

static_assert(std::endian::native == std::endian::little, "the driver's numbers are read as they stand");

std::unique_ptr<CCyUSBEndPoint> MakeEndpoint(HANDLE device, const usb::EndpointDescriptor& descriptor,
                                             usb::CallLimits& limits)
{
    switch (descriptor.Kind()) {
    case usb::TransferType::Isochronous: return std::make_unique<CCyIsocEndPoint>(device, descriptor, limits);
    case usb::TransferType::Bulk: return std::make_unique<CCyBulkEndPoint>(device, descriptor, limits);
    case usb::TransferType::Interrupt: return std::make_unique<CCyInterruptEndPoint>(device, descriptor, limits);
    case usb::TransferType::Control: break;
    }
    return std::make_unique<CCyControlEndPoint>(device, descriptor, limits);
}

/// The endpoints of one of the configuration's interfaces, as many slots as it announced: a slot without a
/// descriptor is null.
std::vector<CCyUSBEndPoint*> EndpointsOf(const usb::ConfigurationRecord& configuration,
                                         const usb::InterfaceDescription& described)
{
    auto next = configuration.endpoints.begin();
    for (const auto* before = configuration.description.interfaces.data(); before != &described; ++before) {
        next += static_cast<std::ptrdiff_t>(before->endpoints.size());
    }
    std::vector<CCyUSBEndPoint*> slots(described.announcedEndpoints, nullptr);
    for (std::size_t i = 0; i < described.endpoints.size(); ++i) {
        slots[i] = (next++)->get();
    }
    return slots;
}

} // namespace

bool UsbDevice::ReadDescriptor(usb::DescriptorType type, std::uint8_t index, std::uint16_t language,
                               std::span<std::uint8_t> bytes)
{
    const CCyControlEndPoint::Request request{
        .type = CCyControlEndPoint::RequestType::Standard,
        .direction = CCyControlEndPoint::Direction::FromDevice,
        .code = GetDescriptor,
        .value = static_cast<std::uint16_t>(static_cast<unsigned>(type) << 8 | index),
        .index = language,
    };
    const auto length = static_cast<std::uint16_t>(bytes.size());
    usb::RequestBlock block(CCyControlEndPoint::Header(request, length, DescriptorTimeout), length);
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
        m_identity.descriptor = usb::ParseDevice(bytes).value_or(usb::DeviceDescriptor{});
    }
    if (const std::optional<std::uint16_t> language = usb::ChooseLanguage(ReadString(0, 0))) {
        ReadText(m_identity.descriptor.manufacturerString, *language, m_identity.manufacturer);
        ReadText(m_identity.descriptor.productString, *language, m_identity.product);
        ReadText(m_identity.descriptor.serialNumberString, *language, m_identity.serialNumber);
    }
    std::array<std::uint8_t, 1> address{};
    if (IoControl(usb::ControlDeviceAddress, address)) {
        m_identity.address = address[0];
    }
    std::array<std::uint8_t, usb::DeviceIdentity::TextRoom> name{};
    if (IoControl(usb::ControlFriendlyName, name)) {
        std::copy(name.begin(), name.end() - 1, m_identity.friendlyName.begin());
    }
    m_identity.driverVersion = ReadNumber(usb::ControlDriverVersion);
    m_identity.stackVersion = ReadNumber(usb::ControlStackVersion);
    m_identity.highSpeed = ReadNumber(usb::ControlBusSpeed) == usb::HighSpeed;
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

void UsbDevice::ReadText(std::uint8_t index, std::uint16_t language, std::span<wchar_t> text)
{
    if (index == 0) {
        return; // the device has no such string
    }
    const std::u16string read = usb::ParseString(ReadString(index, language));
    std::copy_n(read.begin(), std::min(read.size(), text.size() - 1), text.begin());
}

std::uint32_t UsbDevice::ReadNumber(std::uint32_t code)
{
    std::array<std::uint8_t, 4> bytes{};
    return IoControl(code, bytes) ? std::bit_cast<std::uint32_t>(bytes) : 0;
}

void UsbDevice::ReadConfigurations()
{
    const std::size_t count = std::min<std::size_t>(m_identity.descriptor.configurations, MaximumConfigurations);
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
        std::optional<usb::ConfigurationDescription> parsed = usb::ParseConfiguration(raw);
        if (!parsed) {
            continue;
        }
        auto record = std::make_unique<usb::ConfigurationRecord>(std::move(raw), std::move(*parsed));
        for (const usb::InterfaceDescription& described : record->description.interfaces) {
            for (const usb::EndpointDescriptor& endpoint : described.endpoints) {
                record->endpoints.push_back(MakeEndpoint(m_device.Get(), endpoint, m_limits));
            }
        }
        m_configurations.push_back(std::move(record));
    }
}

void UsbDevice::SelectInterface()
{
    std::array<std::uint8_t, 1> setting{InterfaceNumber};
    m_alternateSetting = IoControl(usb::ControlAlternateSetting, setting) ? setting[0] : -1;
    m_endpoints.push_back(m_control.get());
    const usb::ConfigurationRecord& configuration = *m_configurations[m_configuration];
    if (const auto* selected = configuration.description.Select(InterfaceNumber, m_alternateSetting)) {
        const std::vector<CCyUSBEndPoint*> slots = EndpointsOf(configuration, *selected);
        m_endpoints.insert(m_endpoints.end(), slots.begin(), slots.end());
    }
}
