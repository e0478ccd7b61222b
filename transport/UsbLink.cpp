#include "transport/UsbLink.h"

#include "trace/Trace.h"

#include <exception>
#include <new>
#include <span>
#include <utility>

namespace {

// The vendor driver's device interface class.
constexpr GUID DeviceInterface = {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};

constexpr std::uint8_t BulkAttributes = 2;

} // namespace

UsbLink::UsbLink(Connection& connection, Replies& replies, IProducts& products, FirmwareDownloader& firmware)
    : m_products(products),
      m_firmware(firmware),
      m_limits(connection.m_hStop.Get()),
      m_device(nullptr, DeviceInterface, true, m_limits),
      m_readThreads(connection, replies)
{
    if (connection.m_hStopRead.Get() == nullptr) {
        throw std::bad_alloc(); // no read thread could run, at each of the connections that would follow
    }
}

UsbLink::~UsbLink()
{
    m_readThreads.Stop();
    ReleaseEndpoints();
}

bool UsbLink::Open()
{
    ScanDevices();
    if (m_endpoints.in == nullptr || m_endpoints.out == nullptr) {
        return false;
    }
    Trace(trace::RouterChannel, trace::Usb, "Connection to USB opened, BULK IN on Pipe %d and OUT on Pipe %d",
          m_endpoints.inIndex, m_endpoints.outIndex);
    return true;
}

// The scan does not stop at a supported device: the last one wins.
void UsbLink::ScanDevices()
{
    const std::uint8_t count = m_device.DeviceCount();
    Trace(trace::RouterChannel, trace::Usb, "Iterate USB devices (Found=%d), looking for Morvane Devices",
          static_cast<int>(count));
    std::optional<Choice> chosen;
    bool chosenIsOpen = false;
    for (std::uint8_t index = 0; index < count; ++index) {
        chosenIsOpen = false; // looking at the next device closes the one before,
        m_endpoints = {};     // also when memory did not suffice to remember it
        try {
            if (Query(index)) {
                chosen = {index, m_device.Path()};
                chosenIsOpen = true;
            }
        } catch (...) {
            // One device that fails to be looked at does not hide the others.
            chosenIsOpen = false;
        }
    }
    if (chosen && !chosenIsOpen) {
        ReopenChosen(*chosen);
    }
}

bool UsbLink::Query(std::uint8_t index)
{
    Trace(trace::RouterChannel, trace::Usb, "Query USB device #%d", index + 1);
    if (!m_device.Open(index)) {
        return false;
    }
    const std::uint16_t vendor = m_device.VendorId();
    const std::uint16_t product = m_device.ProductId();
    Trace(trace::RouterChannel, trace::Usb, "Found USB device, VID=%d, PID=%d", vendor, product);
    if (!m_products.IsSupportedProduct(vendor, product)) {
        m_device.Close();
        return false;
    }
    m_firmware.ReadFirmwareFile(product, m_products.GetBootloaderVersion(product));
    m_endpoints = ChooseEndpoints(m_device);
    return true;
}

// A foreign device after the chosen one made the scan close the chosen one, whose endpoints are gone. Each Open
// enumerates again, and no order of the devices is promised ("SetupDiEnumDeviceInterfaces function"): another
// device at that index, even one of the same product, is left to the next scan.
void UsbLink::ReopenChosen(const Choice& chosen)
{
    m_endpoints = {};
    if (!m_device.Open(chosen.index)) {
        return;
    }
    if (m_device.Path() == chosen.path) {
        m_endpoints = ChooseEndpoints(m_device);
    } else {
        m_device.Close(); // or the next procedure would reset a foreign device
    }
}

UsbLink::Endpoints UsbLink::ChooseEndpoints(const UsbDevice& device)
{
    Endpoints chosen;
    for (std::size_t index = 0; index < device.EndpointCount(); ++index) {
        CCyUSBEndPoint* const endpoint = device.Endpoint(index);
        if (endpoint == nullptr || endpoint->Attributes() != BulkAttributes) {
            continue;
        }
        const bool in = endpoint->IsIn();
        if (!in && chosen.out == nullptr) {
            chosen.out = endpoint;
            chosen.outIndex = static_cast<int>(index);
        } else if (in && chosen.in == nullptr) {
            chosen.in = endpoint;
            chosen.inIndex = static_cast<int>(index);
        } else if (chosen.secondIn == nullptr) {
            chosen.secondIn = endpoint;
        }
    }
    return chosen;
}

void UsbLink::BeginWrite(std::unique_ptr<CSerialPortCommand> packet)
{
    m_write.ResetEvent();
    const std::span<const std::uint8_t> bytes = packet->Bytes();
    m_writeInFlight = m_write.BeginWrite(*m_endpoints.out, usb::Keep(std::move(packet)), bytes);
}

std::optional<TransferEnd> UsbLink::FinishWrite()
{
    m_write.ResetEvent();
    // The late end of an aborted write sets the event as well; then there is nothing to take.
    if (!IsWriting() || !m_write.HasEnded()) {
        return std::nullopt;
    }
    std::uint32_t length = 0;
    if (!m_write.Finish(length)) {
        return TransferEnd{.worked = false, .bytes = 0, .error = ::GetLastError()};
    }
    m_writeInFlight = false;
    return TransferEnd{.worked = true, .bytes = length, .error = ERROR_SUCCESS};
}

void UsbLink::AbortWrite() noexcept
{
    m_endpoints.out->Abort();
    m_write.Abandon();
    m_writeInFlight = false;
}

void UsbLink::ReleaseEndpoints()
{
    for (CCyUSBEndPoint* const endpoint : {m_endpoints.in, m_endpoints.out, m_endpoints.secondIn}) {
        if (endpoint != nullptr) {
            endpoint->Abort();
        }
    }
    m_write.Abandon();
    m_writeInFlight = false;
    m_endpoints = {};
}

// The instrument is reset on the bus every time the router closes it.
void UsbLink::Close()
{
    ReleaseEndpoints();
    m_device.ResetParentPort();
    try {
        m_device.Close();
    } catch (const std::exception& fault) {
        // A handle that does not close is gone nevertheless.
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() %s", fault.what());
    }
}
