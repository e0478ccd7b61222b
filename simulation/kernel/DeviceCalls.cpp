// DeviceIoControl and SetupAPI.
#include "simulation/kernel/Call.h"
#include "simulation/kernel/Devices.h"
#include "simulation/kernel/Pipes.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"
#include "simulation/standin/dbt.h"

#include <algorithm>
#include <array>
#include <cstring>

using namespace sim;

namespace {

constexpr DWORD BufferedTransfer = 0x220024, DirectTransfer = 0x22004B;
constexpr DWORD PipeListen = 0x110008; // what ConnectNamedPipe sends
constexpr std::size_t EndpointAt = 13, DataOffsetAt = 30;
constexpr std::uint8_t InFlag = 0x80;
constexpr DWORD InterfaceActive = 1;

std::uint32_t NumberAt(const std::uint8_t* block, std::size_t at)
{
    std::uint32_t number = 0;
    std::memcpy(&number, block + at, sizeof number);
    return number;
}

// A driver fails one and the same request inline, or accepts it and fails it later.
BOOL RefuseByDriver(DeviceFile& device, const Request& request, DWORD error)
{
    if (!TheWorld().switches.Take(Switch::RefusalComesLate)) {
        return RefuseStart(request, error, true);
    }
    const Ref<Object> held(&device);
    Defer([held, request, error] { Complete(request, error, 0); });
    return Call::Refuse(ERROR_IO_PENDING);
}

BOOL Transfer(DeviceFile& device, bool isDirect, std::span<std::uint8_t> block, std::span<std::uint8_t> out,
              OVERLAPPED* record, DWORD error, DWORD* returned)
{
    const bool isIn = (block[EndpointAt] & InFlag) != 0;
    const std::size_t offset = isDirect ? 0 : NumberAt(block.data(), DataOffsetAt);
    const std::span<std::uint8_t> data = isDirect ? out : block.subspan(offset);
    Request request = Accept(record, device, data.data(), static_cast<DWORD>(data.size()));
    if (error != ERROR_SUCCESS || device.IsGone()) {
        return RefuseByDriver(device, request, error != ERROR_SUCCESS ? error : device.instrument.goneError);
    }
    LendBlock(request, block.data(), static_cast<DWORD>(block.size()));
    request.before = static_cast<DWORD>(offset);
    return StartTransfer(device, request, isIn, isIn ? std::span<std::uint8_t>() : data, returned);
}

BOOL Control(DeviceFile& device, DWORD code, std::span<std::uint8_t> buffer, OVERLAPPED* record, DWORD error,
             DWORD* returned)
{
    const Request request = Accept(record, device, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (error != ERROR_SUCCESS || device.IsGone()) {
        return RefuseByDriver(device, request, error != ERROR_SUCCESS ? error : device.instrument.goneError);
    }
    DWORD count = 0;
    const DWORD answer = AnswerControl(device, code, buffer, count);
    if (answer != ERROR_SUCCESS) {
        return RefuseByDriver(device, request, answer);
    }
    if (TheWorld().switches.Take(Switch::DeviceKeepsControl)) {
        ForbidJudgement();
        KeepControl(device, request);
        return Call::Refuse(ERROR_IO_PENDING);
    }
    if (TheWorld().switches.Take(Switch::DeviceAnswersLate)) {
        const Ref<Object> held(&device);
        Defer([held, request, count] { Complete(request, ERROR_SUCCESS, count); });
        return Call::Refuse(ERROR_IO_PENDING);
    }
    Complete(request, ERROR_SUCCESS, count);
    return AnswerStart(request, returned);
}

/// The present interfaces in the order of one snapshot.
std::vector<std::string> Present(const GUID& interfaceClass, bool turned)
{
    const Devices& devices = *TheWorld().devices;
    if (devices.driver != nullptr) {
        return devices.driver->Present(interfaceClass); // its tests count on the order
    }
    std::vector<std::string> paths;
    if (devices.instrument.isPlugged) {
        paths.emplace_back("\\\\?\\usb#instrument");
    }
    if (devices.foreign.isPlugged) {
        paths.emplace_back("\\\\?\\usb#foreign");
    }
    if (turned) {
        std::reverse(paths.begin(), paths.end());
    }
    return paths;
}

} // namespace

namespace sim {

/// A snapshot of the interfaces.
struct DeviceSet
{
    std::vector<std::string> paths;
};

} // namespace sim

BOOL DeviceIoControl(HANDLE handle, DWORD code, LPVOID in, DWORD inLength, LPVOID out, DWORD outLength,
                     DWORD* returned, OVERLAPPED* record)
{
    Call call("DeviceIoControl");
    if (IsNoHandle(handle)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    if (Object& file = ObjectOf(handle); file.kind == Object::Kind::PipeEnd && code == PipeListen) {
        return ListenPipe(call, static_cast<PipeEnd&>(file), record);
    }
    if (record == nullptr || record->hEvent == nullptr) {
        Fault("a request to a device has no event");
    }
    if (Object& object = ObjectOf(handle); object.kind == Object::Kind::Driven) {
        const BOOL result =
            TheWorld().devices->driver->Control(object, code, {static_cast<std::uint8_t*>(in), inLength},
                                                {static_cast<std::uint8_t*>(out), outLength}, record, returned);
        Point("DeviceIoControl done");
        return result;
    }
    auto& device = static_cast<DeviceFile&>(ObjectOf(handle, Object::Kind::Device));
    const DWORD error = call.Injected({ERROR_GEN_FAILURE, ERROR_NO_SYSTEM_RESOURCES, ERROR_DEVICE_NOT_CONNECTED,
                                       ERROR_OPERATION_ABORTED, ERROR_BAD_COMMAND});
    const std::span<std::uint8_t> input(static_cast<std::uint8_t*>(in), inLength);
    const std::span<std::uint8_t> output(static_cast<std::uint8_t*>(out), outLength);
    const bool isTransfer = code == DirectTransfer || code == BufferedTransfer;
    const BOOL result = isTransfer
                          ? Transfer(device, code == DirectTransfer, input, output, record, error, returned)
                          : Control(device, code, output, record, error, returned);
    Point("DeviceIoControl done");
    return result;
}

HDEVINFO SetupDiGetClassDevsA(const GUID* interfaceClass, const char* /*enumerator*/, HWND /*window*/, DWORD flags)
{
    Call call("SetupDiGetClassDevsA");
    if (flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
        Fault("an enumeration that is not known here");
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER})) {
        return INVALID_HANDLE_VALUE;
    }
    return new DeviceSet{Present(*interfaceClass, TheWorld().switches.Take(Switch::DeviceOrderChanges))};
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, void* /*device*/, const GUID* /*interfaceClass*/, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA* found)
{
    Call call("SetupDiEnumDeviceInterfaces");
    if (IsNoHandle(set)) {
        return Call::Refuse(ERROR_INVALID_HANDLE);
    }
    if (found->cbSize != sizeof *found) {
        return Call::Refuse(ERROR_INVALID_PARAMETER);
    }
    if (index >= static_cast<DeviceSet*>(set)->paths.size()) {
        return Call::Refuse(ERROR_NO_MORE_ITEMS);
    }
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY})) {
        return FALSE;
    }
    found->Flags = InterfaceActive;
    found->Reserved = index;
    return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* found,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD size, DWORD* needed,
                                      void* /*device*/)
{
    Call call("SetupDiGetDeviceInterfaceDetailA");
    if (call.Fails({ERROR_NOT_ENOUGH_MEMORY, ERROR_GEN_FAILURE})) {
        return FALSE;
    }
    const std::string& path = static_cast<DeviceSet*>(set)->paths[found->Reserved];
    const auto wanted =
        static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + path.size() + 1);
    if (needed != nullptr) {
        *needed = wanted;
    }
    if (size < wanted) {
        return Call::Refuse(ERROR_INSUFFICIENT_BUFFER);
    }
    if (detail->cbSize != sizeof *detail) {
        return Call::Refuse(1784); // ERROR_INVALID_USER_BUFFER
    }
    std::memcpy(detail->DevicePath, path.c_str(), path.size() + 1);
    return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set)
{
    Call call("SetupDiDestroyDeviceInfoList");
    delete static_cast<DeviceSet*>(set);
    return TRUE;
}

HDEVNOTIFY RegisterDeviceNotificationA(void* /*recipient*/, void* /*filter*/, DWORD /*flags*/)
{
    Fault("the core has no window to be told of devices");
}

BOOL UnregisterDeviceNotification(HDEVNOTIFY /*registration*/)
{
    Fault("no registration can be there");
}
