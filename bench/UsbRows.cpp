// Round trips over the simulated instrument's driver, with the router and without.
#include "bench/DataPath.h"
#include "bench/Rows.h"
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "usb/ControlCodes.h"
#include "usb/RequestBlock.h"
#include "usb/UsbDevice.h"
#include "win32/Event.h"

#include <stdexcept>
#include <string>

namespace bench {

namespace {

constexpr GUID DeviceInterface = {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};
constexpr std::uint8_t Out = 0x02;
constexpr std::uint8_t In = 0x86;
constexpr std::uint32_t Slot = 0;
constexpr std::uint32_t LongestRead = 65535;

/// One transfer of the client below, with all that the driver may touch until it is complete.
class DirectTransfer
{
public:
    DirectTransfer(HANDLE device, std::uint8_t endpoint) : m_device(device)
    {
        m_block.endpointAddress = endpoint;
        m_overlapped.hEvent = m_event.Get();
    }
    ~DirectTransfer()
    {
        if (m_pending) {
            ::CancelIoEx(m_device, &m_overlapped);
            Complete();
        }
    }
    DirectTransfer(const DirectTransfer&) = delete;
    DirectTransfer& operator=(const DirectTransfer&) = delete;

    void Start(std::uint8_t* data, DWORD length)
    {
        m_pending = ::DeviceIoControl(m_device, usb::ControlDirectTransfer, &m_block, sizeof m_block, data, length,
                                      nullptr, &m_overlapped) != FALSE ||
                    ::GetLastError() == ERROR_IO_PENDING;
    }
    /// Waits for the end; the bytes transferred, 0 when it failed or was refused.
    std::size_t Complete()
    {
        DWORD length = 0;
        const bool worked = m_pending && ::GetOverlappedResult(m_device, &m_overlapped, &length, TRUE) != FALSE;
        m_pending = false;
        return worked ? length : 0;
    }

private:
    const HANDLE m_device;
    const win32::Event m_event{win32::Event::Kind::ManualReset};
    usb::TransferHeader m_block{};
    OVERLAPPED m_overlapped{};
    bool m_pending = false;
};

/// The client that opens the instrument itself: a read is pending, one write is made, both are waited for.
class DirectClient
{
public:
    DirectClient() : m_buffer(LongestRead), m_device(nullptr, DeviceInterface, true)
    {
        if (!m_device.IsOpen()) {
            throw std::runtime_error("the simulated instrument does not open");
        }
    }

    void RoundTrip(std::vector<std::uint8_t>& message)
    {
        m_read.Start(m_buffer.data(), LongestRead);
        m_write.Start(message.data(), static_cast<DWORD>(message.size()));
        if (m_write.Complete() != message.size() || m_read.Complete() != message.size()) {
            throw std::runtime_error("a transfer is cut");
        }
    }

private:
    std::vector<std::uint8_t> m_buffer;
    UsbDevice m_device;
    DirectTransfer m_read{m_device.Handle(), In};
    DirectTransfer m_write{m_device.Handle(), Out};
};

double DirectMedian(std::size_t size, std::size_t count)
{
    DirectClient client;
    std::vector<std::uint8_t> message(size, 'u');
    std::vector<double> times;
    for (std::size_t i = 0; i < count + WarmUps; ++i) {
        const Stopwatch watch;
        client.RoundTrip(message);
        times.push_back(watch.Nanoseconds() / 1000);
    }
    return Median({times.begin() + WarmUps, times.end()});
}

} // namespace

// A device has one owner at a time: in each round the client opens it first, then the router is started.
void AddUsbRows(Table& table, const RunSize& run, RouterSession& session)
{
    const std::string fault =
        instrumentbus::InstallDriver(instrumentbus::DriverBesideProgram(), std::chrono::seconds(30));
    if (!fault.empty()) {
        throw std::runtime_error("the simulated instrument's driver is not installed: " + fault);
    }
    instrumentbus::InstrumentControl bus;
    bus.Clear();
    bus.Plug(Slot, instrumentbus::Instrument());
    const RoleProcess instrument(L"bus", {});
    const std::array<std::size_t, 2> sizes{64, 1024};
    std::array<std::vector<double>, 2> direct;
    std::array<std::vector<double>, 2> routed;
    const std::size_t count = run.Times(150);
    for (int round = 0; round < (run.quick ? 1 : 5); ++round) {
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            direct[i].push_back(DirectMedian(sizes[i], count));
        }
        RunningRouter router(session);
        const auto client = router.OpenPort(3, 1);
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            const std::vector<std::uint8_t> message(sizes[i], 'u');
            std::vector<double> times;
            RoundTrip(*client, message, WarmUps, nullptr);
            RoundTrip(*client, message, count, &times);
            routed[i].push_back(Median(times));
        }
        client->Close();
    }
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        table.Add({"round trip, " + std::to_string(sizes[i]) + " B, USB",
                   "write and read by DeviceIoControl",
                   {Median(routed[i]), "us"},
                   Quantity{Median(direct[i]), "us"},
                   Bound::AtMost,
                   3,
                   ""});
    }
    bus.Clear();
}

} // namespace bench
