#include "simulation/kernel/Devices.h"

#include "simulation/kernel/Call.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/kernel/World.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace sim {

namespace {

constexpr std::uint64_t LongestKeepUs = 3'000'000;
constexpr std::uint64_t LongestControlUs = 20'000'000;
constexpr std::size_t UsbdStatusAt = 18; // in a transfer's block

Switches& TheSwitches()
{
    return TheWorld().switches;
}

DWORD AnyGoneError()
{
    constexpr std::array<DWORD, 6> errors = {ERROR_OPERATION_ABORTED,    ERROR_GEN_FAILURE,
                                             ERROR_FILE_NOT_FOUND,       433 /* ERROR_NO_SUCH_DEVICE */,
                                             ERROR_DEVICE_NOT_CONNECTED, ERROR_BAD_COMMAND};
    return errors[Random(errors.size())];
}

void CompleteReads(UsbInstrument& instrument)
{
    while (!instrument.reads.empty() && !instrument.toRouter.empty()) {
        const Request read = instrument.reads.front();
        instrument.reads.pop_front();
        Bytes& bytes = instrument.toRouter.front();
        const std::size_t count = std::min<std::size_t>(read.length, bytes.size());
        std::memcpy(read.buffer, bytes.data(), count);
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
        if (bytes.empty()) {
            instrument.toRouter.pop_front();
        }
        Complete(read, ERROR_SUCCESS, read.before + static_cast<DWORD>(count));
    }
}

void CompleteWrites(UsbInstrument& instrument)
{
    while (!instrument.writes.empty() && instrument.takesWrites) {
        auto [request, bytes] = std::move(instrument.writes.front());
        instrument.writes.pop_front();
        const DWORD count = request.before + static_cast<DWORD>(bytes.size());
        instrument.fromRouter.push_back(std::move(bytes));
        Complete(request, ERROR_SUCCESS, count);
        SetByWindows(instrument.wake.get());
    }
}

// A driver fails the request, or lets it succeed with a failure in its block.
void FailTransfer(const Request& request, DWORD error)
{
    if (!TheSwitches().Take(Switch::FailureInStatus)) {
        return Complete(request, error, 0);
    }
    constexpr std::uint32_t DeviceGone = 0xC0007000;
    std::memcpy(request.block + UsbdStatusAt, &DeviceGone, sizeof DeviceGone);
    Complete(request, ERROR_SUCCESS, 0);
}

// Ends a request that the driver kept, unless it has ended.
void EndKept(DeviceFile& device, std::uint64_t number)
{
    const auto at = std::find_if(device.kept.begin(), device.kept.end(),
                                 [=](const Request& kept) { return kept.number == number; });
    if (at != device.kept.end()) {
        const Request kept = *at;
        device.kept.erase(at);
        Complete(kept, ERROR_OPERATION_ABORTED, 0);
    }
}

// A request that the driver has lost: it ends when the driver likes, in success or not, at the latest with the
// device's next unplugging.
void Keep(DeviceFile& device, const Request& request, std::uint64_t longestUs)
{
    device.kept.push_back(request);
    const std::uint64_t until = NowUs() + Random(longestUs);
    const Ref<Object> held(&device);
    StartFiber([held, number = request.number, until, &device] {
        ++Current().inKernel;
        Block(until - NowUs(), nullptr);
        EndKept(device, number);
    }).isProduct = false;
}

void EndCancelled(DeviceFile& device, const Request& request)
{
    if (TheSwitches().Take(Switch::DeviceKeepsRequest)) {
        Keep(device, request, LongestKeepUs);
    } else if (TheSwitches().Take(Switch::DeviceCancelsLate)) {
        device.kept.push_back(request);
        const Ref<Object> held(&device);
        Defer([held, number = request.number, &device] { EndKept(device, number); });
    } else {
        Complete(request, ERROR_OPERATION_ABORTED, 0);
    }
}

} // namespace

UsbInstrument& TheInstrument()
{
    return TheWorld().devices->instrument;
}

UsbInstrument& TheWorldsForeignDevice()
{
    return TheWorld().devices->foreign;
}

void Plug(UsbInstrument& instrument)
{
    instrument.isPlugged = true;
    ++instrument.generation;
    instrument.goneError = AnyGoneError();
    instrument.toRouter.clear();
    instrument.fromRouter.clear();
    instrument.takesWrites = true;
}

void Unplug(UsbInstrument& instrument)
{
    instrument.isPlugged = false;
    AbortTransfers(instrument, true, instrument.goneError);
    AbortTransfers(instrument, false, instrument.goneError);
    instrument.toRouter.clear();
    if (instrument.connection != nullptr) {
        for (const Request& kept : std::exchange(instrument.connection->kept, {})) {
            Complete(kept, instrument.goneError, 0);
        }
    }
}

void Feed(UsbInstrument& instrument, Bytes bytes)
{
    if (instrument.isPlugged) {
        instrument.toRouter.push_back(std::move(bytes));
        CompleteReads(instrument);
    }
}

void TakeWrites(UsbInstrument& instrument)
{
    instrument.takesWrites = true;
    CompleteWrites(instrument);
}

void AbortTransfers(UsbInstrument& instrument, bool isIn, DWORD error)
{
    if (isIn) {
        for (const Request& read : std::exchange(instrument.reads, {})) {
            FailTransfer(read, error);
        }
    } else {
        for (const auto& write : std::exchange(instrument.writes, {})) {
            FailTransfer(write.first, error);
        }
    }
}

void CancelTransfers(DeviceFile& device, bool isIn)
{
    UsbInstrument& instrument = device.instrument;
    if (isIn) {
        for (const Request& read : std::exchange(instrument.reads, {})) {
            EndCancelled(device, read);
        }
        return;
    }
    if (TheSwitches().Take(Switch::DeviceIgnoresCancel)) {
        TakeWrites(instrument);
        return;
    }
    for (const auto& write : std::exchange(instrument.writes, {})) {
        EndCancelled(device, write.first);
    }
}

// The driver cancels what it has queued for that handle; what is in the hardware completes later.
void DeviceFile::OnClosed()
{
    closed = true;
    if (instrument.connection == this) {
        instrument.connection = nullptr;
        if (!IsGone()) {
            AbortTransfers(instrument, true, ERROR_OPERATION_ABORTED);
            AbortTransfers(instrument, false, ERROR_OPERATION_ABORTED);
        }
        instrument.toRouter.clear();
        SetByWindows(instrument.wake.get());
    }
}

bool CancelDeviceRequest(Object& object, const OVERLAPPED* record, bool mustEnd)
{
    auto& device = static_cast<DeviceFile&>(object);
    UsbInstrument& instrument = device.instrument;
    const auto read = std::find_if(instrument.reads.begin(), instrument.reads.end(),
                                   [=](const Request& request) { return request.record == record; });
    if (read != instrument.reads.end()) {
        const Request request = *read;
        instrument.reads.erase(read);
        mustEnd ? Complete(request, ERROR_OPERATION_ABORTED, 0) : EndCancelled(device, request);
        return true;
    }
    const auto write = std::find_if(instrument.writes.begin(), instrument.writes.end(),
                                    [=](const auto& pending) { return pending.first.record == record; });
    if (write != instrument.writes.end()) {
        const Request request = write->first;
        instrument.writes.erase(write);
        mustEnd ? Complete(request, ERROR_OPERATION_ABORTED, 0) : EndCancelled(device, request);
        return true;
    }
    const auto kept = std::find_if(device.kept.begin(), device.kept.end(),
                                   [=](const Request& request) { return request.record == record; });
    const bool isKept = kept != device.kept.end();
    if (isKept && (mustEnd || TheSwitches().Take(Switch::DeviceCancelsLate))) {
        EndKept(device, kept->number);
    }
    return isKept;
}

void KeepControl(DeviceFile& device, const Request& request)
{
    Keep(device, request, LongestControlUs);
}

BOOL StartTransfer(DeviceFile& device, const Request& request, bool isIn, std::span<const std::uint8_t> written,
                   DWORD* returned)
{
    UsbInstrument& instrument = device.instrument;
    if (instrument.connection != &device) {
        instrument.connection = &device;
        ++instrument.connections;
        instrument.fromRouter.clear();
        SetByWindows(instrument.wake.get());
    }
    if (isIn) {
        instrument.reads.push_back(request);
        CompleteReads(instrument);
        return AnswerStart(request, returned);
    }
    instrument.writes.emplace_back(request, Bytes(written.begin(), written.end()));
    if (TheSwitches().Take(Switch::DeviceAnswersLate)) {
        const Ref<Object> held(&device);
        Defer([held, &instrument] { CompleteWrites(instrument); });
    } else {
        CompleteWrites(instrument);
    }
    return AnswerStart(request, returned);
}

HANDLE OpenDevice(const char* path)
{
    Devices& devices = *TheWorld().devices;
    if (devices.driver != nullptr) {
        return devices.driver->Open(path);
    }
    UsbInstrument& instrument = std::strstr(path, "foreign") != nullptr ? devices.foreign : devices.instrument;
    if (!instrument.isPlugged) {
        Call::Refuse(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (TheSwitches().Take(Switch::DeviceGoneAtOpen)) {
        ForbidJudgement();
        Call::Refuse(AnyGoneError());
        return INVALID_HANDLE_VALUE;
    }
    return AddHandle(Ref<Object>(new DeviceFile(instrument, instrument.generation)));
}

} // namespace sim
