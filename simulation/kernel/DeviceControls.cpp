// What the driver reports about the instrument: its descriptors and the small I/O controls.
#include "simulation/kernel/Devices.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr DWORD DriverVersion = 0x220000, StackVersion = 0x220004, AlternateSetting = 0x220008,
                DeviceAddress = 0x220010, EndpointZero = 0x220020, ResetParentPort = 0x220030,
                FriendlyName = 0x220040, AbortPipe = 0x220044, BusSpeed = 0x22004C;
constexpr std::size_t HeaderSize = 38;

Bytes DeviceDescriptor(const UsbInstrument& instrument)
{
    const auto low = [](std::uint16_t number) { return static_cast<std::uint8_t>(number & 0xFF); };
    const auto high = [](std::uint16_t number) { return static_cast<std::uint8_t>(number >> 8); };
    return {18,
            1,
            0x00,
            0x02,
            0,
            0,
            0,
            64,
            low(instrument.vendorId),
            high(instrument.vendorId),
            low(instrument.productId),
            high(instrument.productId),
            0,
            1,
            1,
            2,
            3,
            1};
}

Bytes ConfigurationDescriptor(const UsbInstrument& instrument)
{
    const auto count = static_cast<std::uint8_t>(instrument.endpoints.size());
    const auto length = static_cast<std::uint8_t>(18 + 7 * count);
    Bytes bytes = {9, 2, length, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, count, 0xFF, 0, 0, 0};
    for (const EndpointKind& kind : instrument.endpoints) {
        const Bytes endpoint = {7, 5, kind.address, kind.attributes, 0x00, 0x02, 0};
        bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
    }
    return bytes;
}

Bytes StringDescriptor(std::uint8_t index)
{
    if (index == 0) {
        return {4, 3, 0x09, 0x04};
    }
    Bytes bytes = {0, 3};
    for (const char character : std::string("Part ") + static_cast<char>('0' + index)) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(0);
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

// The block has the setup packet in front: wValue at 2, with type in its upper and index in its lower byte.
DWORD AnswerEndpointZero(const UsbInstrument& instrument, std::span<std::uint8_t> block, DWORD& returned)
{
    if (block.size() < HeaderSize) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    const std::uint8_t index = block[2];
    Bytes descriptor;
    switch (block[3]) {
    case 1: descriptor = DeviceDescriptor(instrument); break;
    case 2: descriptor = ConfigurationDescriptor(instrument); break;
    case 3: descriptor = StringDescriptor(index); break;
    default: return ERROR_GEN_FAILURE;
    }
    const std::size_t count = std::min(descriptor.size(), block.size() - HeaderSize);
    std::copy_n(descriptor.begin(), count, block.begin() + HeaderSize);
    returned = static_cast<DWORD>(HeaderSize + count);
    return ERROR_SUCCESS;
}

DWORD Answer(std::span<std::uint8_t> buffer, std::span<const std::uint8_t> bytes, DWORD& returned)
{
    if (buffer.size() < bytes.size()) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
    returned = static_cast<DWORD>(bytes.size());
    return ERROR_SUCCESS;
}

} // namespace

DWORD AnswerControl(DeviceFile& device, DWORD code, std::span<std::uint8_t> buffer, DWORD& returned)
{
    UsbInstrument& instrument = device.instrument;
    const auto number = [&](std::uint32_t value) {
        Bytes bytes(sizeof value);
        std::memcpy(bytes.data(), &value, sizeof value);
        return Answer(buffer, bytes, returned);
    };
    switch (code) {
    case DriverVersion: return number(0x01020304);
    case StackVersion: return number(0x200);
    case BusSpeed: return number(2);
    case AlternateSetting: return Answer(buffer, Bytes{0}, returned);
    case DeviceAddress: return Answer(buffer, Bytes{5}, returned);
    case FriendlyName: {
        Bytes name(256);
        name[0] = 'S';
        return Answer(buffer, name, returned);
    }
    case EndpointZero: return AnswerEndpointZero(instrument, buffer, returned);
    case ResetParentPort: ++instrument.resets; return ERROR_SUCCESS;
    case AbortPipe: CancelTransfers(device, buffer[0] == BulkIn.address); return ERROR_SUCCESS;
    default: return ERROR_NOT_SUPPORTED;
    }
}

} // namespace sim
