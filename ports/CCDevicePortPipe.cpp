#include "ports/CCDevicePortPipe.h"

#include "ports/PipeWorker.h"
#include "trace/Trace.h"

#include <memory>
#include <new>

CCDevicePortPipe::CCDevicePortPipe(CCommunicationDriver* transport, PortAddress address, std::string pipeName,
                                   std::int32_t readBufferSize, std::int32_t writeBufferSize, PortOptions options)
    : CSimulationDevice(false, address.deviceType, address.port),
      m_Transport(transport),
      m_settings{address, std::move(pipeName), readBufferSize, writeBufferSize, options},
      m_flushLimitMs(options.flushLimitMs)
{
    if (!m_Worker.Start([this] { PipeProcessThread(); })) {
        Trace(DeviceType(), trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread could not be started (%d)",
              static_cast<int>(::GetLastError()));
    }
}

CCDevicePortPipe::~CCDevicePortPipe()
{
    if (!IsStopping()) {
        BeginStop();
    }
    if (m_flushLimitMs == 0) {
        m_Worker.Join();
    } else {
        // "FlushFileBuffers function": on a pipe it returns only when the client has read everything, without a
        // timeout.
        const ULONGLONG passed = ::GetTickCount64() - m_stopBegan;
        m_Worker.JoinCancelling(passed < m_flushLimitMs ? static_cast<DWORD>(m_flushLimitMs - passed) : 0);
    }
    // The queue drops what it holds without destroying it: what came in after the worker's end is destroyed here.
    m_state.OutQueue.DestroyAll();
}

void CCDevicePortPipe::BeginStop(DWORD flushLimitMs) noexcept
{
    m_flushLimitMs = flushLimitMs;
    m_stopBegan = ::GetTickCount64();
    m_state.StopEvent.Set();
}

void CCDevicePortPipe::PipeProcessThread()
{
    if (m_settings.pipeName.empty()) {
        return;
    }
    try {
        PipeWorker(m_settings, m_state, m_Transport, [this](RequestReader::Message message) {
            OnPipePacket(message);
        }).Run();
    } catch (...) {
        m_state.IsPipeConnected = false; // or Send would queue without end for a client that nothing serves
        m_state.OutQueue.DestroyAll();
        Trace(DeviceType(), trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread failed, port not served");
    }
}

void CCDevicePortPipe::Send(CCommunicationDriver* source, std::span<const std::uint8_t> payload)
{
    if (IsSimulation() && source != nullptr) {
        Trace(DeviceType(), trace::DevicePipe,
              "CCDevicePortPipe::Send() ignored non-simulation packet in simulation mode");
        return;
    }
    if (!IsSimulation() && source == nullptr) {
        Trace(DeviceType(), trace::DevicePipe,
              "CCDevicePortPipe::Send() ignored simulation packet in non-simulation mode");
        return;
    }
    if (QueueLimitEnabled && m_state.OutQueue.GetCount() >= QueueLimit) {
        Trace(trace::RouterChannel, trace::DevicePipe,
              "CCDevicePortPipe::Send() Maximum queue size reached, ignore all incoming  request");
        return;
    }
    if (!IsPipeConnected()) {
        Trace(trace::RouterChannel, trace::DevicePipe,
              "CCDevicePortPipe::Send() NO device connection, ignore all incoming  request");
        Trace(DeviceType(), trace::PacketParsing, "DEV<-PCR[%02d,%02d] ** NO_CONNECTION **", DeviceType(), Port());
        return;
    }
    try {
        m_state.OutQueue.Push(std::make_unique<CSerialPortCommand>(
            payload.data(), static_cast<std::int32_t>(payload.size()), true, false));
    } catch (const std::bad_alloc&) {
        // Without memory the packet is dropped, and without a trace, which would need memory too.
    }
}

bool CCDevicePortPipe::OnPipePacket(RequestReader::Message message)
{
    if (message.empty()) {
        return false;
    }
    const auto length = static_cast<std::uint32_t>(message.size());
    if (const std::string dump = PacketDump(DeviceType(), trace::PacketParsing, message); !dump.empty()) {
        Trace(DeviceType(), trace::PacketParsing, "DEV->PCR[%02d,%02d][%03d] %s", DeviceType(), Port(),
              static_cast<int>(length), dump.c_str());
    }
    if (IsSimulation()) {
        SendToSimulation(message.data(), length);
        Trace(DeviceType(), trace::PacketParsing, "Send to simulation");
    } else if (IsOfThisConnection() && m_Transport != nullptr && m_Transport->IsReady()) {
        // On the wire an address element is one byte.
        m_Transport->Send(static_cast<std::uint8_t>(DeviceType() & 0xFF), static_cast<std::uint8_t>(Port() & 0xFF),
                          message.data(), length);
    } else {
        Trace(DeviceType(), trace::PacketParsing, "Warning: Packet ignored");
        return false;
    }
    m_state.Pending.Add(1);
    return true;
}

void CCDevicePortPipe::RequestPipeRecreate() noexcept
{
    if (m_Transport != nullptr && !m_Transport->IsConnected()) {
        m_state.connectionLosses.fetch_add(1); // before the request: the thread that takes it sees the loss
    }
    m_state.RecreateEvent.Set();
}

// The transport asks for a re-creation while it is disconnected, between any two connections of the instrument.
bool CCDevicePortPipe::IsOfThisConnection() const noexcept
{
    return m_state.connectionLosses.load() == m_state.lossesAtCreation;
}

std::int32_t CCDevicePortPipe::PacketCompleted() noexcept
{
    const std::int32_t pending = m_state.Pending.Add(-1);
    if (pending < PendingPackets::Maximum) {
        m_state.ReadEnableEvent.Set();
    }
    return pending;
}
