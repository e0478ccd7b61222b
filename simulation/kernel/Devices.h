// The USB bus: one instrument that can be plugged and unplugged, and the driver in front of it.
#pragma once

#include "simulation/kernel/Requests.h"
#include "simulation/standin/setupapi.h"

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

struct DeviceFile;

struct EndpointKind
{
    std::uint8_t address, attributes;
};

inline constexpr EndpointKind BulkOut{0x02, 2}, BulkIn{0x86, 2};
inline constexpr std::array<EndpointKind, 2> UsualEndpoints{BulkOut, BulkIn};

/// What hangs on the bus. The scenario plays its other side.
struct UsbInstrument
{
    bool isPlugged = false;
    std::uint32_t generation = 0; // of its plugging: an open handle belongs to one
    std::uint16_t vendorId = 0, productId = 0;
    std::span<const EndpointKind> endpoints = UsualEndpoints;
    DWORD goneError = ERROR_GEN_FAILURE; // the driver's choice for requests to a device that is gone
    DeviceFile* connection = nullptr;    // the handle whose transfers it answers
    std::uint64_t connections = 0;       // of which so many have begun
    std::deque<Bytes> toRouter;          // each completes one read
    std::deque<Bytes> fromRouter;        // written and not taken yet
    std::deque<Request> reads;
    bool takesWrites = true; // false: writes stay pending
    std::deque<std::pair<Request, Bytes>> writes;
    Ref<Object> wake; // event: bytes for the scenario's side, or another connection
    std::uint64_t resets = 0;
};

/// A driver in place of the instrument's and its bus: the unit tests bring their own. From inside the calls.
class IDriver
{
public:
    /// The paths of the devices that show an interface.
    virtual std::vector<std::string> Present(const GUID& interfaceClass) = 0;
    /// An object of the kind Driven; INVALID_HANDLE_VALUE, with the last error.
    virtual HANDLE Open(const std::string& path) = 0;
    virtual BOOL Control(Object& file, DWORD code, std::span<std::uint8_t> in, std::span<std::uint8_t> out,
                         OVERLAPPED* record, DWORD* returned) = 0;
    /// Whether the request is pending there.
    virtual bool Cancel(Object& file, const OVERLAPPED* record) = 0;

protected:
    ~IDriver() = default;
};

struct Devices
{
    IDriver* driver = nullptr;
    UsbInstrument instrument;
    UsbInstrument foreign; // another product on the bus, which the router does not serve
    std::vector<int> sets; // open snapshots: 0 free, else how many interfaces it lists
};

struct DeviceFile final : Object
{
    DeviceFile(UsbInstrument& opened, std::uint32_t number)
        : Object(Kind::Device), instrument(opened), generation(number)
    {
    }
    void OnClosed() override;
    bool IsGone() const { return !instrument.isPlugged || instrument.generation != generation; }

    UsbInstrument& instrument;
    const std::uint32_t generation;
    std::vector<Request> kept; // requests that the driver ignores for a while
    bool closed = false;
};

UsbInstrument& TheInstrument();
/// A product that the router does not serve.
UsbInstrument& TheWorldsForeignDevice();
void Plug(UsbInstrument& instrument);
void Unplug(UsbInstrument& instrument);
/// Completes what is written from now on.
void TakeWrites(UsbInstrument& instrument);
/// What the instrument has to say: the next read gets it.
void Feed(UsbInstrument& instrument, Bytes bytes);

HANDLE OpenDevice(const char* path);

/// A transfer of the bulk endpoints; what a driver does with its request block.
BOOL StartTransfer(DeviceFile& device, const Request& request, bool isIn, std::span<const std::uint8_t> written,
                   DWORD* returned);
/// An I/O control that is no transfer: its answer, in `buffer`; the error otherwise.
DWORD AnswerControl(DeviceFile& device, DWORD code, std::span<std::uint8_t> buffer, DWORD& returned);
/// The driver keeps an I/O control, for longer than the router waits; it may end when it is cancelled.
void KeepControl(DeviceFile& device, const Request& request);
/// The router aborts the transfers of one direction: each ends at once, late, successfully nevertheless, or not at
/// all.
void CancelTransfers(DeviceFile& device, bool isIn);
/// Ends the pending transfers of one direction.
void AbortTransfers(UsbInstrument& instrument, bool isIn, DWORD error);

} // namespace sim
