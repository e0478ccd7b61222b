// From a completed read to the ports: the reply queue, the reply thread, and the sorting of packets.
//
// ApppendToReplyProcessQueue runs on the thread that reads; everything else here on the reply thread, which alone
// touches the reply buffer.
#include "trace/Trace.h"
#include "transport/CCyUSBDriver.h"
#include "transport/SkippedPacketLog.h"

#include <memory>
#include <new>
#include <optional>

namespace {

constexpr DWORD QuietTime = 1000; // ms
constexpr std::int32_t BroadcastPort = 2;

/// Takes a packet from the front of the reply buffer when it goes, also when handling the packet throws: left there it
/// would be met, and throw, again and again, with everything behind it waiting.
class ConsumeAtEnd
{
public:
    ConsumeAtEnd(ReceiveBuffer& buffer, std::size_t length) noexcept : m_buffer(buffer), m_length(length) {}
    ~ConsumeAtEnd() { m_buffer.Consume(m_length); }
    ConsumeAtEnd(const ConsumeAtEnd&) = delete;
    ConsumeAtEnd& operator=(const ConsumeAtEnd&) = delete;

private:
    ReceiveBuffer& m_buffer;
    std::size_t m_length;
};

} // namespace

void CCyUSBDriver::ApppendToReplyProcessQueue(const std::uint8_t* data, std::uint32_t length)
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::ApppendToReplyProcessQueue() %d bytes",
          static_cast<int>(length));
    if (data == nullptr || length < 1) {
        return;
    }
    try {
        auto block = std::make_unique<CSerialPortCommand>(data, static_cast<std::int32_t>(length), true, false);
        m_ReplyQueue.Push(block.get());
        block.release();
    } catch (const std::bad_alloc&) {
        // Without memory the block is lost; the numbering check reports the gap.
    }
}

CCyUSBDriver::ReplySlot CCyUSBDriver::AwaitReply()
{
    const bool inTime = m_ReplyQueue.AwaitNotEmpty(QuietTime);
    if (m_hStop.IsSet()) {
        return ReplySlot::Stop;
    }
    if (!inTime) {
        return ReplySlot::TimedOut;
    }
    return m_ReplyQueue.GetCount() > 0 ? ReplySlot::BlockQueued : ReplySlot::Nothing;
}

void CCyUSBDriver::ReplyProcessThread()
{
    bool running = true;
    while (running) {
        switch (AwaitReply()) {
        case ReplySlot::Stop:
            m_ReplyQueue.DestroyAll();
            running = false;
            break;
        case ReplySlot::BlockQueued: HandleReplyBlock(); break;
        case ReplySlot::TimedOut: OnQuietReplySecond(); break;
        case ReplySlot::Nothing: break;
        }
        ::Sleep(0);
        running = running && !m_bTerminate;
    }
}

void CCyUSBDriver::OnQuietReplySecond()
{
    const std::int32_t pending = m_ReplyQueue.GetCount();
    if (pending == 0) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::ReplyProcessThread()IDLE");
        return;
    }
    Trace(trace::RouterChannel, trace::Usb,
          "CCyUSBDriver::ReplyProcessThread()FORWARD, Number of pending replies: %d", pending);
    HandleReplyBlock();
}

void CCyUSBDriver::HandleReplyBlock()
{
    try {
        const std::unique_ptr<CSerialPortCommand> block(m_ReplyQueue.Pop());
        if (!block) {
            return;
        }
        const auto length = static_cast<std::uint32_t>(block->GetLength());
        std::string dump;
        if (DumpPacket(trace::RouterChannel, trace::ReadWrite, block->GetData(), length, false, dump) &&
            !dump.empty())
        {
            Trace(trace::RouterChannel, trace::ReadWrite, "PCR<-USB[%d] %s", block->GetLength(), dump.c_str());
        }
        CCommunicationDriver& self = *this;
        self.DispatchToDevice(block->GetData(), length);
    } catch (...) {
        Trace(trace::RouterChannel, trace::ReadWrite,
              "Error in ReplyProcessThread - ignored to prevent loss of threaded functionality.");
    }
}

void CCyUSBDriver::DispatchToDevice(const std::uint8_t* data, std::uint32_t length)
{
    if (data == nullptr || length < 1) {
        return;
    }
    m_ReplyBuffer.Append({data, length});
    while (m_ReplyBuffer.Size() >= wire::LeastToLookAt) {
        if (!SyncToFrame() || m_ReplyBuffer.Size() < wire::FrameOverhead) {
            return; // too little is left, which the next call's bytes may complete
        }
        const std::optional<wire::Frame> frame = wire::ParseFrame(m_ReplyBuffer.Bytes());
        if (!frame) {
            return; // the partial packet stands at the front and stays
        }
        {
            const ConsumeAtEnd consume(m_ReplyBuffer, frame->Length());
            if (frame->packetType == wire::PortTraffic) {
                Deliver(*frame);
            }
            CheckNumber(frame->packetNumber);
        }
        SyncToFrame();
    }
}

// Drops what stands in front of the next "##", everything when there is none: a lone '#' at the end goes with it.
// Returns whether a pair is at the front now.
bool CCyUSBDriver::SyncToFrame()
{
    const std::optional<std::size_t> at = wire::FindSync(m_ReplyBuffer.Bytes());
    m_ReplyBuffer.Consume(at.value_or(m_ReplyBuffer.Size()));
    return at.has_value();
}

void CCyUSBDriver::Deliver(const wire::Frame& frame)
{
    const std::int32_t x = wire::Coordinate(frame.deviceType);
    const std::int32_t y = wire::Coordinate(frame.port);
    const auto length = static_cast<std::uint32_t>(frame.payload.size());
    if (x == 0 && y == 0) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::DispatchToDevice() Reply for Firmware Download");
        m_Firmware.OnReceive(frame.payload.data(), length);
    } else if (x == -1 && y == BroadcastPort) {
        if (length != 0) {
            Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::DispatchToDevice() Broadcast to all EV ports");
            m_Host.SendToPorts(BroadcastPort, this, frame.payload.data(), length);
        }
    } else if (!m_Host.SendToPort(x, y, this, frame.payload.data(), length)) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::DispatchToDevice() Packet has no valid destination at (%d,%d)", x, y);
    }
}

// The expected number is deliberately not wrapped to 8 bits: 255 followed by 0 is reported, with 256 expected, and
// after a packet numbered 0 the next one is not checked. Readers of the trace know both.
void CCyUSBDriver::CheckNumber(std::uint8_t received)
{
    const int previous = m_nLastPacketNumber.load(std::memory_order_relaxed);
    if (previous != 0 && received != previous + 1) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::DispatchToDevice() Packet has packet number %d, expect %d", received, previous + 1);
        SkippedPacketLog(previous, received);
    }
    m_nLastPacketNumber.store(received, std::memory_order_relaxed);
}
