// The connect procedure of the command thread: from "disconnected" to an open instrument, or to another try.
#include "trace/Trace.h"
#include "transport/UsbCommandThread.h"

#include <optional>

namespace {

constexpr DWORD TimeBetweenScans = 10; // ms
constexpr int AttemptsPerTrace = 20;
constexpr std::uint8_t BulkAttributes = 2;
constexpr std::uint8_t DirectionIn = 0x80;

} // namespace

void UsbCommandThread::OnDisconnected()
{
    m_timerResolution.Restore();
    if (m_driver.m_bFirstReadFailed.exchange(false)) {
        // A device that opens and refuses every read must not be reset on the bus without a pause.
        m_driver.m_hStop.Wait(TimeBetweenScans);
    }
    if (m_connectAttempts++ % AttemptsPerTrace == 0) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::USBCommandProcessThread(%dth try) looking for USB endpoints...", m_connectAttempts);
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() %d pending writes",
              m_driver.m_CommandQueue.GetCount());
    }
    m_driver.StopReadThreads();
    m_driver.NotifyState(false);
    m_driver.m_Host.SignalAllPorts();
    ReleaseEndpoints();
    CloseDevice();
    ScanDevices();
    if (m_endpoints.in == nullptr || m_endpoints.out == nullptr) {
        Trace(trace::RouterChannel, trace::Usb, "Connection to USB failed");
        m_driver.m_hDisconnected.Set();
        ::Sleep(TimeBetweenScans);
    } else {
        OnOpened();
    }
}

// The scan does not stop at a supported device: the last one wins.
void UsbCommandThread::ScanDevices()
{
    const std::uint8_t count = m_device.DeviceCount();
    Trace(trace::RouterChannel, trace::Usb, "Iterate USB devices (Found=%d), looking for Morvane Devices",
          static_cast<int>(count));
    std::optional<Choice> chosen;
    bool chosenIsOpen = false;
    for (std::uint8_t index = 0; index < count; ++index) {
        chosenIsOpen = false; // looking at the next device closes the one before
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

bool UsbCommandThread::Query(std::uint8_t index)
{
    Trace(trace::RouterChannel, trace::Usb, "Query USB device #%d", index + 1);
    if (!m_device.Open(index)) {
        return false;
    }
    const std::uint16_t vendor = m_device.VendorId();
    const std::uint16_t product = m_device.ProductId();
    Trace(trace::RouterChannel, trace::Usb, "Found USB device, VID=%d, PID=%d", vendor, product);
    if (!m_driver.m_Host.IsSupportedProduct(vendor, product)) {
        m_device.Close();
        return false;
    }
    m_driver.m_Firmware.ReadFirmwareFile(product, m_driver.m_Host.GetBootloaderVersion(product));
    m_endpoints = ChooseEndpoints(m_device);
    return true;
}

// A foreign device behind the chosen one made the scan close it, and its endpoints went with it. Each Open enumerates
// anew, and Windows promises no order: another device at its index by now, even one of the same product, is left to the
// next scan.
void UsbCommandThread::ReopenChosen(const Choice& chosen)
{
    m_endpoints = {};
    if (!m_device.Open(chosen.index)) {
        return;
    }
    if (m_device.Path() == chosen.path) {
        m_endpoints = ChooseEndpoints(m_device);
    } else {
        m_device.Close(); // or the next procedure would reset somebody else's device
    }
}

UsbCommandThread::Endpoints UsbCommandThread::ChooseEndpoints(const UsbDevice& device)
{
    Endpoints chosen;
    for (std::size_t index = 0; index < device.EndpointCount(); ++index) {
        CCyUSBEndPoint* const endpoint = device.Endpoint(index);
        if (endpoint == nullptr || endpoint->Attributes() != BulkAttributes) {
            continue;
        }
        const bool in = (endpoint->Address() & DirectionIn) != 0;
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

void UsbCommandThread::OnOpened()
{
    Trace(trace::RouterChannel, trace::Usb, "Connection to USB opened, BULK IN on Pipe %d and OUT on Pipe %d",
          m_endpoints.inIndex, m_endpoints.outIndex);
    m_driver.m_hDisconnected.Reset();
    m_driver.NotifyState(true);
    m_driver.m_hStopRead.Reset();
    if (!m_driver.m_hReadThread.IsHeld() &&
        !m_driver.m_hReadThread.Start(
            [driver = &m_driver, in = m_endpoints.in] { driver->USBReadWaitThread(in); }))
    {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBReadWaitThread() cannot be started(%d)",
              static_cast<int>(::GetLastError()));
        m_driver.DropConnection(); // nobody would read from it
        ::Sleep(TimeBetweenScans);
        return;
    }
    m_driver.StartDownloadIfNeeded();
    m_driver.BeginNumbering();
    m_writeInFlight = false;
}
