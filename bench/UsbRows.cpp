// Round trips over the simulated instrument's driver, with the router and without.
#include "bench/Ends.h"
#include "bench/Rows.h"
#include "tests/instrument/InstrumentControl.h"
#include "tests/instrument/InstrumentDriver.h"
#include "usb/ControlCodes.h"
#include "usb/RequestBlock.h"
#include "usb/UsbDevice.h"

namespace bench {

namespace {

constexpr GUID DeviceInterface = {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};

/// The client that opens the instrument itself: a read is pending, one write is made, both are waited for.
class DirectUsbClient
{
public:
    DirectUsbClient() : m_buffer(65535), m_device(nullptr, DeviceInterface, true)
    {
        Demand(m_device.IsOpen(), "the simulated instrument does not open");
        m_in.endpointAddress = 0x86;
        m_out.endpointAddress = 0x02;
    }

    void RoundTrip(std::vector<std::uint8_t>& message)
    {
        Start(m_read, m_in, m_buffer);
        Start(m_write, m_out, message);
        Demand(Complete(m_write) == message.size() && Complete(m_read) == message.size(), "a transfer is cut");
    }

private:
    void Start(win32::OverlappedOperation& transfer, usb::TransferHeader& header, std::vector<std::uint8_t>& data)
    {
        transfer.Control(m_device.Handle(), usb::ControlDirectTransfer, &header, sizeof header, data.data(),
                         static_cast<DWORD>(data.size()));
    }
    DWORD Complete(win32::OverlappedOperation& transfer)
    {
        ::WaitForSingleObject(transfer.EventHandle(), INFINITE);
        DWORD length = 0;
        return transfer.Finish(m_device.Handle(), length) ? length : 0;
    }

    std::vector<std::uint8_t> m_buffer;
    usb::TransferHeader m_in{};
    usb::TransferHeader m_out{};
    UsbDevice m_device;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
};

} // namespace

// A device has one owner at a time: in each round the client opens it first, then the router is started.
void AddUsbRows(Table& table, const RunSize& run)
{
    RouterSession session(RouterSession::Transport::Usb);
    const std::string fault =
        instrumentbus::InstallDriver(instrumentbus::DriverBesideProgram(), std::chrono::seconds(30));
    Demand(fault.empty(), fault.c_str());
    instrumentbus::InstrumentControl bus;
    bus.Clear();
    bus.Plug(0, instrumentbus::Instrument());
    const RoleProcess instrument = BusInstrument();
    constexpr std::array<std::size_t, 2> Sizes{64, 1024};
    std::array<std::vector<double>, 2> direct;
    std::array<std::vector<double>, 2> routed;
    const std::size_t count = run.Times(150);
    const auto measure = [&](auto& client, std::array<std::vector<double>, 2>& medians) {
        for (std::size_t i = 0; i < Sizes.size(); ++i) {
            std::vector<std::uint8_t> message(Sizes[i], 'u');
            medians[i].push_back(Median(Microseconds(count, [&] { client.RoundTrip(message); })));
        }
    };
    for (int round = 0; round < (run.quick ? 1 : 5); ++round) {
        {
            DirectUsbClient client;
            measure(client, direct);
        }
        const RunningRouter router(session);
        Client client(router.RegisterPort(1));
        measure(client, routed);
    }
    for (std::size_t i = 0; i < Sizes.size(); ++i) {
        table.Add({"round trip, " + std::to_string(Sizes[i]) + " B, USB", "write and read by DeviceIoControl",
                   Median(routed[i]), Median(direct[i]), "us", AtMost(3), ""});
    }
    bus.Clear();
}

} // namespace bench
