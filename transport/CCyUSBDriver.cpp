#include "transport/CCyUSBDriver.h"

#include "trace/Trace.h"
#include "transport/SimulationLink.h"
#include "transport/UsbLink.h"

#include <functional>
#include <span>
#include <utility>

namespace {

void StartThread(win32::Thread& thread, const char* name, std::function<void()> body)
{
    if (!thread.Start(std::move(body))) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::CCyUSBDriver() the %s thread cannot be started(%d)",
              name, static_cast<int>(::GetLastError()));
    }
}

} // namespace

CCyUSBDriver::CCyUSBDriver(bool simulation, const TransportHost& host)
    : m_connection(host.ports),
      m_products(host.products),
      m_watch(host.watch),
      m_Firmware(*this, host.names),
      m_bSimulation(simulation)
{
    StartThread(m_hCommandThread, "command", [this] {
        if (m_bSimulation) {
            SimulationCommandProcessThread();
        } else {
            USBCommandProcessThread();
        }
    });
    m_hCommandThread.SetPriority(THREAD_PRIORITY_ABOVE_NORMAL);
    StartThread(m_hReplyThread, "reply", [this] { m_replies.ReplyProcessThread(); });
}

CCyUSBDriver::~CCyUSBDriver()
{
    m_connection.m_hStop.Set();
    m_connection.m_hStopRead.Set();
    m_replies.Interrupt();
    m_hCommandThread.Join();
    m_hReplyThread.Join();
}

void CCyUSBDriver::USBCommandProcessThread()
{
    try {
        UsbLink link(m_connection, m_replies, m_products, m_Firmware);
        RunCommandThread(link);
    } catch (...) {
        Trace(trace::RouterChannel, trace::Usb, "%s", UsbCommandTexts.cannotRun);
    }
}

void CCyUSBDriver::SimulationCommandProcessThread()
{
    try {
        SimulationLink link(m_connection, m_replies);
        RunCommandThread(link);
    } catch (...) {
        Trace(trace::RouterChannel, trace::Usb, "%s", SimulationCommandTexts.cannotRun);
    }
}

void CCyUSBDriver::RunCommandThread(ILink& link)
{
    CommandThread({*this, m_connection, m_outgoing, m_replies, m_Firmware, m_watch}, link).Run();
}

void CCyUSBDriver::Reconnect()
{
    m_connection.m_hDisconnected.Set();
}

void CCyUSBDriver::Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length)
{
    m_outgoing.Send(x, y, data, length);
}

bool CCyUSBDriver::IsConnected()
{
    return m_connection.IsOpen();
}

bool CCyUSBDriver::IsReady()
{
    // The downloader is asked in simulation mode too: its answer is traced.
    return IsConnected() && (!m_Firmware.NeedsDownload() || m_bSimulation);
}

bool CCyUSBDriver::IsUpdatingFirmware()
{
    return m_Firmware.IsDownloading();
}

std::uint32_t CCyUSBDriver::GetTransferredBytes()
{
    return m_connection.TransferredBytes();
}

void CCyUSBDriver::DispatchToDevice(const std::uint8_t* data, std::uint32_t length)
{
    m_replies.Dispatch({data, data != nullptr ? length : 0});
}

void CCyUSBDriver::SubmitFirmware(std::span<const std::uint8_t> message)
{
    m_outgoing.Submit(wire::PortTraffic, 0, 0, message, message.size());
}

void CCyUSBDriver::ClearCommandQueue()
{
    m_outgoing.Queue().DestroyAll();
}
