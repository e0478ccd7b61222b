// I/O controls that are no transfers: what the driver and the device tell of themselves, abort, reset.
#include "tests/instrument/driver/Transfers.h"
#include "tests/instrument/driver/Wire.h"

namespace driver {

namespace {

using namespace instrumentbus;

constexpr std::uint32_t StandardGetDescriptorIn = 0x80;
constexpr std::uint32_t GetDescriptor = 6;
constexpr std::uint32_t StringType = 3;

struct Bytes
{
    const std::uint8_t* data;
    std::uint32_t length;
};

bool IsAskedFor(const DescriptorHead& head, std::uint32_t value, std::uint32_t index)
{
    if (head.type != value >> 8 || head.index != (value & 0xFF)) {
        return false;
    }
    return head.type != StringType || head.index == 0 || head.language == index;
}

/// Null data: there is no such descriptor.
Bytes FindDescriptor(const Slot& slot, std::uint32_t value, std::uint32_t index)
{
    const auto* next = reinterpret_cast<const std::uint8_t*>(slot.plug) + sizeof(Plug);
    const auto* const end = reinterpret_cast<const std::uint8_t*>(slot.plug) + slot.plugLength;
    while (static_cast<std::size_t>(end - next) >= sizeof(DescriptorHead)) {
        DescriptorHead head{};
        RtlCopyMemory(&head, next, sizeof head);
        next += sizeof head;
        if (head.length > static_cast<std::size_t>(end - next)) {
            break;
        }
        if (IsAskedFor(head, value, index)) {
            return {next, head.length};
        }
        next += head.length;
    }
    return {nullptr, 0};
}

/// Ends the request with as many of `bytes` as it has room for and its rule allows.
void Reply(Request& request, Bytes bytes, Batch& batch)
{
    std::uint32_t length = bytes.length < request.length ? bytes.length : request.length;
    length = length < request.limit ? length : request.limit;
    RtlCopyMemory(request.data, bytes.data, length);
    Finish(request, STATUS_SUCCESS, length, batch);
}

void ReplyNumber(Request& request, std::uint32_t number, std::uint32_t size, Batch& batch)
{
    std::uint8_t bytes[4];
    wire::Put(bytes, number);
    Reply(request, {bytes, size}, batch);
}

void VendorRequest(Request& request, bool in, Batch& batch)
{
    Slot& slot = *request.slot;
    if (in) {
        Reply(request, {slot.vendorData, slot.vendorDataLength}, batch);
        return;
    }
    slot.vendorDataLength = request.length < sizeof slot.vendorData ? request.length : sizeof slot.vendorData;
    RtlCopyMemory(slot.vendorData, request.data, slot.vendorDataLength);
    Finish(request, STATUS_SUCCESS, request.length, batch);
}

void ControlTransfer(Request& request, Batch& batch)
{
    Slot& slot = *request.slot;
    const std::uint8_t* const block = request.block;
    if (request.length < wire::HeaderSize || wire::Number(block + wire::DataOffset) != wire::HeaderSize ||
        wire::Number(block + wire::DataLength) != request.length - wire::HeaderSize ||
        wire::Word(block + wire::SetupLength) != request.length - wire::HeaderSize || block[wire::Address] != 0)
    {
        Finish(request, STATUS_INVALID_PARAMETER, 0, batch);
        return;
    }
    RtlCopyMemory(slot.counters.lastSetup, block, sizeof slot.counters.lastSetup);
    slot.counters.setupTimeout = wire::Number(block + wire::Timeout);
    request.data += wire::HeaderSize;
    request.length -= wire::HeaderSize;
    request.prefix = wire::HeaderSize;
    if (block[wire::SetupType] != StandardGetDescriptorIn || block[wire::SetupRequest] != GetDescriptor) {
        VendorRequest(request, (block[wire::SetupType] & 0x80) != 0, batch);
        return;
    }
    const Bytes descriptor =
        FindDescriptor(slot, wire::Word(block + wire::SetupValue), wire::Word(block + wire::SetupIndex));
    if (descriptor.data != nullptr) {
        Reply(request, descriptor, batch);
    } else {
        request.prefix = 0;
        Finish(request, STATUS_UNSUCCESSFUL, 0, batch);
    }
}

void Abort(Request& request, Batch& batch)
{
    if (request.length < 1) {
        Finish(request, STATUS_INVALID_PARAMETER, 0, batch);
        return;
    }
    Slot& slot = *request.slot;
    Endpoint* const endpoint = EndpointOf(slot, request.data[0]);
    ++slot.counters.aborts;
    ++endpoint->aborts;
    FinishAll(slot, STATUS_CANCELLED, batch,
              [&](Request& pending) { return pending.endpoint == endpoint && !pending.remote; });
    Finish(request, STATUS_SUCCESS, 1, batch);
}

} // namespace

void Answer(Request& request, Batch& batch)
{
    Slot& slot = *request.slot;
    const Plug& plug = *slot.plug;
    ++slot.counters.controls;
    switch (request.code) {
    case wire::DriverVersion: return ReplyNumber(request, plug.driverVersion, 4, batch);
    case wire::StackVersion: return ReplyNumber(request, plug.stackVersion, 4, batch);
    case wire::BusSpeed: return ReplyNumber(request, plug.speed, 4, batch);
    case wire::AlternateSetting: return ReplyNumber(request, plug.alternateSetting, 1, batch);
    case wire::DeviceAddress: return ReplyNumber(request, plug.deviceAddress, 1, batch);
    case wire::FriendlyName: return Reply(request, {plug.friendlyName, sizeof plug.friendlyName}, batch);
    case wire::EndpointZero: return ControlTransfer(request, batch);
    case wire::AbortPipe: return Abort(request, batch);
    case wire::ResetParentPort: ++slot.counters.resets; return Finish(request, STATUS_SUCCESS, 0, batch);
    default: return Finish(request, STATUS_INVALID_DEVICE_REQUEST, 0, batch);
    }
}

} // namespace driver
