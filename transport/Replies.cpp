#include "transport/Replies.h"

#include "trace/Trace.h"
#include "transport/SkippedPacketLog.h"

#include <memory>
#include <new>
#include <string>

namespace {

constexpr PortAddress FirmwareAddress{0, 0};
constexpr PortAddress BroadcastAddress{-1, 2}; // all ports numbered 2

} // namespace

void Replies::ApppendToReplyProcessQueue(std::span<const std::uint8_t> bytes) noexcept
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::ApppendToReplyProcessQueue() %d bytes",
          static_cast<int>(bytes.size()));
    if (bytes.empty()) {
        return;
    }
    try {
        m_ReplyQueue.Push(std::make_unique<CSerialPortCommand>(
            bytes.data(), static_cast<std::int32_t>(bytes.size()), true, false));
    } catch (const std::bad_alloc&) {
        // Without memory the block is lost; the numbering check reports the gap.
    }
}

Replies::Slot Replies::Await()
{
    const bool inTime = m_ReplyQueue.AwaitNotEmpty(TransportIdleMs);
    if (m_connection.m_hStop.IsSet()) {
        return Slot::Stop;
    }
    if (!inTime) {
        return Slot::TimedOut;
    }
    return m_ReplyQueue.GetCount() > 0 ? Slot::BlockQueued : Slot::Nothing;
}

void Replies::ReplyProcessThread()
{
    bool running = true;
    while (running) {
        switch (Await()) {
        case Slot::Stop:
            m_ReplyQueue.DestroyAll();
            running = false;
            break;
        case Slot::BlockQueued: HandleBlock(); break;
        case Slot::TimedOut: OnQuietSecond(); break;
        case Slot::Nothing: break;
        }
        ::Sleep(0);
        running = running && !m_connection.m_bTerminate;
    }
}

void Replies::OnQuietSecond()
{
    const std::int32_t pending = m_ReplyQueue.GetCount();
    if (pending == 0) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::ReplyProcessThread()IDLE");
        return;
    }
    Trace(trace::RouterChannel, trace::Usb,
          "CCyUSBDriver::ReplyProcessThread()FORWARD, Number of pending replies: %d", pending);
    HandleBlock();
}

void Replies::HandleBlock()
{
    try {
        const std::unique_ptr<CSerialPortCommand> block = m_ReplyQueue.Pop();
        if (!block) {
            return;
        }
        if (const std::string dump = PacketDump(trace::RouterChannel, trace::ReadWrite, block->Bytes());
            !dump.empty())
        {
            Trace(trace::RouterChannel, trace::ReadWrite, "PCR<-USB[%d] %s", block->GetLength(), dump.c_str());
        }
        m_driver.DispatchToDevice(block->GetData(), static_cast<std::uint32_t>(block->GetLength()));
    } catch (...) {
        Trace(trace::RouterChannel, trace::ReadWrite,
              "Error in ReplyProcessThread - ignored to prevent loss of threaded functionality.");
    }
}

void Replies::Dispatch(std::span<const std::uint8_t> bytes)
{
    if (bytes.empty()) {
        return;
    }
    m_ReplyBuffer.Append(bytes);
    m_ReplyBuffer.TakeFrames([this](const wire::Frame& frame) {
        if (frame.packetType == wire::PortTraffic) {
            Deliver(frame);
        }
        CheckNumber(frame.packetNumber);
    });
}

void Replies::Deliver(const wire::Frame& frame)
{
    const PortAddress address = frame.Address();
    if (address == FirmwareAddress) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::DispatchToDevice() Reply for Firmware Download");
        m_firmware.OnReceive(frame.payload.data(), static_cast<std::uint32_t>(frame.payload.size()));
    } else if (address == BroadcastAddress) {
        if (!frame.payload.empty()) {
            Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::DispatchToDevice() Broadcast to all EV ports");
            m_connection.Ports().SendToPorts(BroadcastAddress.port, &m_driver, frame.payload);
        }
    } else if (!m_connection.Ports().SendToPort(address, &m_driver, frame.payload)) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::DispatchToDevice() Packet has no valid destination at (%d,%d)", address.deviceType,
              address.port);
    }
}

// The expected number is deliberately not wrapped to 8 bits: 255 followed by 0 is reported, with 256 expected, and
// after a packet numbered 0 the next one is not checked. Readers of the trace know both.
void Replies::CheckNumber(std::uint8_t received)
{
    const int previous = m_nLastPacketNumber.load(std::memory_order_relaxed);
    if (previous != 0 && received != previous + 1) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::DispatchToDevice() Packet has packet number %d, expect %d", received, previous + 1);
        SkippedPacketLog(previous, received);
    }
    m_nLastPacketNumber.store(received, std::memory_order_relaxed);
}
