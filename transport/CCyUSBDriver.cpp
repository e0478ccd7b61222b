#include "transport/CCyUSBDriver.h"

#include "trace/Trace.h"
#include "transport/CommandThread.h"
#include "transport/SimulationLink.h"
#include "transport/UsbLink.h"

#include <functional>
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

template <class Link, class... Parts>
void CCyUSBDriver::RunCommandThread(Parts&... parts)
{
    try {
        Link link(parts...);
        CommandThread({*this, m_connection, m_outgoing, m_replies, m_Firmware, m_watch, link}).Run();
    } catch (...) {
        Trace(trace::RouterChannel, trace::Usb, "%s", Link::LinkTraits.texts.cannotRun);
    }
}

void CCyUSBDriver::USBCommandProcessThread()
{
    RunCommandThread<UsbLink>(m_connection, m_replies, m_products, m_Firmware);
}

void CCyUSBDriver::SimulationCommandProcessThread()
{
    RunCommandThread<SimulationLink>(m_connection, m_replies);
}

bool CCyUSBDriver::IsReady()
{
    // The downloader is asked in simulation mode too: its answer is traced.
    return IsConnected() && (!m_Firmware.NeedsDownload() || m_bSimulation);
}
