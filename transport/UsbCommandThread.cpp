#include "transport/UsbCommandThread.h"

#include "trace/Trace.h"
#include "transport/Pauses.h"

#include <exception>
#include <new>
#include <span>

namespace {

// The vendor driver's device interface class.
constexpr GUID DeviceInterface = {0x4E7B2C19, 0x8D35, 0x4A60, {0xB1, 0xF2, 0x7C, 0x9E, 0x05, 0xD3, 0xA6, 0x48}};

constexpr DWORD QuietTime = 1000; // ms
constexpr DWORD ResolutionHoldMs =
    1000; // longer than any pause within a burst: not raised and restored per packet
constexpr DWORD PauseAfterExceptionMs = 10;
constexpr int BusyPassesBeforeAbort = 5;
constexpr int QuietSecondsBeforeAbort = 5;

} // namespace

void CCyUSBDriver::USBCommandProcessThread()
{
    try {
        UsbCommandThread(*this).Run();
    } catch (...) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() cannot run");
    }
}

UsbCommandThread::UsbCommandThread(CCyUSBDriver& driver)
    : m_driver(driver),
      m_limits(driver.m_hStop.Get()),
      m_device(nullptr, DeviceInterface, true, m_limits),
      m_waits(driver.m_hStop.Get(), driver.m_hDisconnected.Get(), m_write.EventHandle(),
              driver.m_CommandQueue.GetNotEmptyEvent())
{
    if (m_write.EventHandle() == nullptr) {
        throw std::bad_alloc();
    }
}

UsbCommandThread::~UsbCommandThread()
{
    // A thread that ends because no host program is left still has its connection; a stopped one has none any more.
    m_driver.StopReadThreads();
    ReleaseEndpoints();
}

void UsbCommandThread::Run()
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() started");
    while (m_running) {
        try {
            Handle(m_waits.Any(QuietTime));
        } catch (...) {
            Trace(trace::RouterChannel, trace::Usb,
                  "CCyUSBDriver::USBCommandProcessThread() failed, reconnecting");
            m_driver.m_hDisconnected.Set();               // whatever failed, a new connection puts it right
            m_driver.m_hStop.Wait(PauseAfterExceptionMs); // what fails each time must not fill the log
        }
        ::Sleep(0);
        if (m_driver.m_bTerminate) {
            m_driver.m_Host.RequestQuit();
            m_running = false;
        }
    }
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() ended");
}

void UsbCommandThread::Handle(Slot slot)
{
    switch (slot) {
    case Slot::Stop: return OnStop();
    case Slot::Disconnected: return OnDisconnected();
    case Slot::WriteDone: return OnWriteDone();
    case Slot::CommandQueued: return OnCommandQueued();
    case Slot::TimedOut: return OnQuietSecond();
    case Slot::Failed: return;
    }
}

void UsbCommandThread::OnStop()
{
    m_running = false;
    m_timerResolution.Restore();
    m_driver.StopReadThreads();
    ReleaseEndpoints();
    CloseDevice();
    m_driver.m_CommandQueue.DestroyAll();
}

void UsbCommandThread::OnWriteDone()
{
    m_write.ResetEvent();
    // The late end of an aborted transfer sets the event as well; then there is nothing to take.
    if (!m_writeInFlight || m_endpoints.out == nullptr || !m_write.HasEnded()) {
        return;
    }
    std::uint32_t length = 0;
    if (m_write.Finish(length)) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread overlapped write %d bytes",
              static_cast<int>(length));
        m_driver.CountTransferred(length);
        m_writeInFlight = false;
    } else {
        // A failure that Windows has no error for leaves the write in flight: it is aborted like a stuck one.
        const DWORD error = ::GetLastError();
        Trace(trace::RouterChannel, trace::Usb, "Command-sent failed, reconnecting");
        if (error != ERROR_SUCCESS) {
            m_driver.DropConnection();
        }
    }
    ::Sleep(0);
}

void UsbCommandThread::OnCommandQueued()
{
    if (m_driver.m_CommandQueue.GetCount() == 0) {
        m_driver.m_CommandQueue.Settle(); // set late: what it told of is written already
    } else if (m_endpoints.out == nullptr || m_writeInFlight) {
        OnBusy();
    } else {
        WriteNext();
        m_driver.m_CommandQueue.Settle(); // not before the write, for which a client waits
        m_busyPasses = 0;
        m_idlePasses = 0;
    }
}

void UsbCommandThread::OnBusy()
{
    // Six passes are to take about 6 ms; with Windows' usual timer of 15.6 ms they would take nearly 100.
    m_timerResolution.Raise();
    SleepOneMillisecond();
    if (m_busyPasses++ < BusyPassesBeforeAbort) {
        return;
    }
    m_busyPasses = 0;
    Trace(trace::RouterChannel, trace::Usb,
          "CCyUSBDriver::USBCommandProcessThread() WARNING: Command queue not empty, but previous Write operation "
          "incomplete (TotalAborted=%d)",
          m_totalAborted);
    if (m_endpoints.out != nullptr && m_writeInFlight) {
        ++m_totalAborted;
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::USBCommandProcessThread() abort previous Write operation (TotalAborted=%d)",
              m_totalAborted);
        AbortWrite();
    }
}

void UsbCommandThread::WriteNext()
{
    m_timerResolution.RestoreAfter(ResolutionHoldMs);
    std::unique_ptr<CSerialPortCommand> packet(m_driver.m_CommandQueue.Take());
    if (!packet || packet->GetLength() == 0) {
        return;
    }
    m_driver.TraceOutgoing(*packet);
    m_write.ResetEvent();
    // The transfer keeps the packet until the next one starts, so its bytes may be looked at below.
    const CSerialPortCommand& written = *packet;
    const std::span bytes(packet->GetData(), static_cast<std::size_t>(packet->GetLength()));
    m_writeInFlight = m_write.BeginWrite(*m_endpoints.out, std::move(packet), bytes);
    m_driver.ReportPacketCompleted(written);
}

void UsbCommandThread::AbortWrite()
{
    m_endpoints.out->Abort();
    m_write.Abandon();
    m_writeInFlight = false;
}

void UsbCommandThread::OnQuietSecond()
{
    m_timerResolution.Restore();
    if (HostIsGone()) {
        Trace(trace::RouterChannel, trace::Usb, "Host application does not exist..So termintating port router...");
        m_driver.m_bTerminate = true;
        return;
    }
    if (m_driver.m_CommandQueue.GetCount() == 0 && m_driver.IsReady()) {
        m_driver.SendIdlePacket();
    }
    if (m_idlePasses++ < QuietSecondsBeforeAbort) {
        return;
    }
    m_idlePasses = 0;
    if (m_endpoints.out != nullptr && m_writeInFlight) {
        ++m_totalAborted;
        Trace(
            trace::RouterChannel, trace::Usb,
            "CCyUSBDriver::USBCommandProcessThread() IDLE,  WARNING: Write operation incomplete (TotalAborted=%d)",
            m_totalAborted);
        AbortWrite();
    }
    Trace(trace::RouterChannel, trace::Usb,
          "CCyUSBDriver::USBCommandProcessThread() IDLE, Number of pending writes: %d",
          m_driver.m_CommandQueue.GetCount());
}

bool UsbCommandThread::HostIsGone()
{
    ITransportHost& host = m_driver.m_Host;
    return !host.IsStandalone() && host.FindProcess(host.GetFirstHostName()) == 0 &&
           host.FindProcess(host.GetSecondHostName()) == 0;
}

void UsbCommandThread::ReleaseEndpoints()
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

// The instrument is reset on the bus every time the router lets go of it. Each caller has released the endpoints.
void UsbCommandThread::CloseDevice()
{
    m_device.ResetParentPort();
    try {
        m_device.Close();
    } catch (const std::exception& fault) {
        // A handle that does not close is gone all the same.
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBCommandProcessThread() %s", fault.what());
    }
}
