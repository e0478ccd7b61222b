#include "transport/CCyUSBDriver.h"

#include "ports/packet/CCriticalSectionHelper.h"
#include "trace/Trace.h"

#include <functional>
#include <memory>
#include <new>
#include <span>
#include <utility>

namespace {

constexpr std::int32_t QueueLimit = 500;
constexpr std::uint8_t IdleAddress = 238;

void StartThread(win32::Thread& thread, const char* name, std::function<void()> body)
{
    if (!thread.Start(std::move(body))) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::CCyUSBDriver() the %s thread cannot be started(%d)",
              name, static_cast<int>(::GetLastError()));
    }
}

} // namespace

CCyUSBDriver::CCyUSBDriver(bool simulation, ITransportHost& host)
    : m_Host(host), m_Firmware(*this), m_bSimulation(simulation)
{
    StartThread(m_hCommandThread, "command", [this] {
        if (m_bSimulation) {
            SimulationCommandProcessThread();
        } else {
            USBCommandProcessThread();
        }
    });
    m_hCommandThread.SetPriority(THREAD_PRIORITY_ABOVE_NORMAL);
    StartThread(m_hReplyThread, "reply", [this] { ReplyProcessThread(); });
}

CCyUSBDriver::~CCyUSBDriver()
{
    EndThreads();
    m_CommandQueue.DestroyAll();
    m_ReplyQueue.DestroyAll();
}

void CCyUSBDriver::EndThreads()
{
    m_hStop.Set();
    m_hStopRead.Set();
    m_ReplyQueue.Interrupt();
    m_hCommandThread.Join();
    m_hReplyThread.Join();
}

void CCyUSBDriver::Reconnect()
{
    m_hDisconnected.Set();
}

void CCyUSBDriver::Send(std::uint8_t x, std::uint8_t y, const std::uint8_t* data, std::uint32_t length)
{
    SubmitOrDrop(false, x, y, data, length);
}

bool CCyUSBDriver::IsConnected()
{
    return !m_hDisconnected.IsSet();
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
    return m_nTransferredBytes.load(std::memory_order_relaxed);
}

void CCyUSBDriver::Submit(bool idle, std::uint8_t x, std::uint8_t y, const std::uint8_t* data,
                          std::uint32_t length)
{
    if (m_bLimitQueue && m_CommandQueue.GetCount() >= QueueLimit) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::Submit() Maximum queue size reached, ignore all incomcing  requests");
        return;
    }
    if (!IsConnected()) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::Submit() No connection, ignore all incomcing  requests");
        return;
    }
    const std::span payload(data, data != nullptr ? length : 0);
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    const CCriticalSectionHelper lock(m_Lock);
    const wire::Header header =
        wire::BuildHeader(m_nNextPacketNumber, idle ? wire::ControlPacket : wire::PortTraffic, x, y, length);
    auto command = std::make_unique<CSerialPortCommand>(header.data(), static_cast<std::int32_t>(header.size()),
                                                        true, false, payload.size() + wire::FrameOverhead);
    command->Append(payload.data(), static_cast<std::int32_t>(payload.size()));
    command->Append(trailer.data(), static_cast<std::int32_t>(trailer.size()));
    m_CommandQueue.Push(command.get());
    command.release();
    ++m_nNextPacketNumber;
}

void CCyUSBDriver::SubmitOrDrop(bool idle, std::uint8_t x, std::uint8_t y, const std::uint8_t* data,
                                std::uint32_t length)
{
    try {
        Submit(idle, x, y, data, length);
    } catch (const std::bad_alloc&) {
        // Without memory the packet is dropped; its number is not used up, so the instrument sees no gap.
    }
}

void CCyUSBDriver::SendIdlePacket()
{
    SubmitOrDrop(true, IdleAddress, IdleAddress, nullptr, 0);
}

void CCyUSBDriver::NotifyState(bool connected)
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::NotifyState(%s)",
          connected ? "Connected" : "Not Connected");
}

void CCyUSBDriver::SubmitFirmware(const std::uint8_t* data, std::uint32_t length)
{
    Submit(false, 0, 0, data, length);
}

void CCyUSBDriver::ClearCommandQueue()
{
    m_CommandQueue.DestroyAll();
}

void CCyUSBDriver::RegisterDeviceName(const std::wstring& name, std::int32_t device)
{
    m_Host.RegisterDeviceName(name, device, 0);
}

void CCyUSBDriver::StopReadThreads()
{
    for (win32::Thread* const thread : {&m_hReadThread, &m_hReadThread2}) {
        if (thread->IsHeld()) {
            m_hStopRead.Set();
            thread->Join();
        }
    }
}

void CCyUSBDriver::BeginNumbering()
{
    m_nLastPacketNumber = 0;
    const CCriticalSectionHelper lock(m_Lock);
    m_nNextPacketNumber = 0;
}

void CCyUSBDriver::StartDownloadIfNeeded()
{
    if (!IsReady() && !m_bSimulation && IsConnected()) {
        m_Firmware.Download();
    }
}

void CCyUSBDriver::TraceOutgoing(const CSerialPortCommand& packet)
{
    std::string dump;
    if (DumpPacket(trace::RouterChannel, trace::ReadWrite, packet.GetData(),
                   static_cast<std::uint32_t>(packet.GetLength()), false, dump) &&
        !dump.empty())
    {
        Trace(trace::RouterChannel, trace::ReadWrite, "PCR->USB[%d] %s", packet.GetLength(), dump.c_str());
    }
}

void CCyUSBDriver::ReportPacketCompleted(const CSerialPortCommand& packet)
{
    const std::span bytes(packet.GetData(), static_cast<std::size_t>(packet.GetLength()));
    m_Host.PacketCompleted(wire::Coordinate(wire::DeviceTypeOf(bytes)), wire::Coordinate(wire::PortOf(bytes)));
}

void CCyUSBDriver::DropConnection()
{
    m_Host.SignalAllPorts();
    m_hDisconnected.Set();
}
