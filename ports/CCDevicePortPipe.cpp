#include "ports/CCDevicePortPipe.h"

#include "ports/PipeWorker.h"
#include "ports/packet/CCriticalSectionHelper.h"
#include "trace/Trace.h"

#include <memory>
#include <new>

CCDevicePortPipe::CCDevicePortPipe(CCommunicationDriver* transport, std::int32_t deviceType, std::int32_t port,
                                   std::string pipeName, std::int32_t readBufferSize, std::int32_t writeBufferSize,
                                   PortOptions options)
    : CSimulationDevice(false, deviceType, port),
      m_Transport(transport),
      m_DeviceType(deviceType),
      m_Port(port),
      m_ReadBufferSize(readBufferSize),
      m_WriteBufferSize(writeBufferSize),
      m_PipeName(std::move(pipeName)),
      m_restrictPipe(options.restrictPipe),
      m_flushLimitMs(options.flushLimitMs)
{
    if (!m_Worker.Start([this] { PipeProcessThread(); })) {
        Trace(m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread could not be started (%d)",
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
        // FlushFileBuffers has no timeout: it blocks until the client has read everything or is gone.
        const ULONGLONG passed = ::GetTickCount64() - m_stopBegan;
        m_Worker.JoinCancelling(passed < m_flushLimitMs ? static_cast<DWORD>(m_flushLimitMs - passed) : 0);
    }
    // The queue drops what it holds without destroying it, so what came in after the worker's end goes here.
    OutQueue.DestroyAll();
}

void CCDevicePortPipe::BeginStop(DWORD flushLimitMs) noexcept
{
    m_flushLimitMs = flushLimitMs;
    m_stopBegan = ::GetTickCount64();
    StopEvent.Set();
}

void CCDevicePortPipe::PipeProcessThread()
{
    if (m_PipeName.empty()) {
        return;
    }
    try {
        PipeWorker(*this).Run();
    } catch (...) {
        Trace(m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread failed, port not served");
    }
}

void CCDevicePortPipe::Send(CCommunicationDriver* source, const std::uint8_t* bytes, std::uint32_t length)
{
    if (IsSimulation() && source != nullptr) {
        Trace(m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::Send() ignored non-simulation packet in simulation mode");
        return;
    }
    if (!IsSimulation() && source == nullptr) {
        Trace(m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::Send() ignored simulation packet in non-simulation mode");
        return;
    }
    if (QueueLimitEnabled && OutQueue.GetCount() >= MaximumPending) {
        Trace(trace::RouterChannel, trace::DevicePipe,
              "CCDevicePortPipe::Send() Maximum queue size reached, ignore all incoming  request");
        return;
    }
    if (!IsPipeConnected()) {
        Trace(trace::RouterChannel, trace::DevicePipe,
              "CCDevicePortPipe::Send() NO device connection, ignore all incoming  request");
        Trace(m_DeviceType, trace::PacketParsing, "DEV<-PCR[%02d,%02d] ** NO_CONNECTION **", m_DeviceType, m_Port);
        return;
    }
    try {
        auto command = std::make_unique<CSerialPortCommand>(bytes, static_cast<std::int32_t>(length), true, false);
        OutQueue.Push(command.get());
        command.release();
    } catch (const std::bad_alloc&) {
        // Without memory the packet is dropped, and without a trace, which would need memory too.
    }
}

bool CCDevicePortPipe::OnPipePacket(const std::uint8_t* bytes, std::int32_t length)
{
    if (bytes == nullptr || length <= 0) {
        return false;
    }
    const auto count = static_cast<std::uint32_t>(length);
    std::string dump;
    if (DumpPacket(m_DeviceType, trace::PacketParsing, bytes, count, false, dump) && !dump.empty()) {
        Trace(m_DeviceType, trace::PacketParsing, "DEV->PCR[%02d,%02d][%03d] %s", m_DeviceType, m_Port, length,
              dump.c_str());
    }
    bool submitted = false;
    if (IsSimulation()) {
        SendToSimulation(bytes, count);
        submitted = true;
        Trace(m_DeviceType, trace::PacketParsing, "Send to simulation");
    } else if (IsOfThisConnection() && m_Transport != nullptr && m_Transport->IsReady()) {
        // On the wire an address element is one byte.
        m_Transport->Send(static_cast<std::uint8_t>(m_DeviceType & 0xFF), static_cast<std::uint8_t>(m_Port & 0xFF),
                          bytes, count);
        submitted = true;
    }
    if (submitted) {
        IncrementPending();
    } else {
        Trace(m_DeviceType, trace::PacketParsing, "Warning: Packet ignored");
    }
    return submitted;
}

void CCDevicePortPipe::RequestPipeRecreate() noexcept
{
    if (m_Transport != nullptr && !m_Transport->IsConnected()) {
        m_connectionLosses.fetch_add(1); // before the request: whoever takes that knows of this
    }
    RecreateEvent.Set();
}

// The transport asks for a re-creation while it is disconnected, between any two connections of the instrument.
bool CCDevicePortPipe::IsOfThisConnection() const noexcept
{
    return m_connectionLosses.load() == m_lossesAtCreation;
}

std::int32_t CCDevicePortPipe::PacketCompleted() noexcept
{
    std::int32_t pending = 0;
    {
        const CCriticalSectionHelper lock(m_PendingSection);
        pending = --PendingCount;
    }
    if (pending < MaximumPending) {
        ReadEnableEvent.Set();
    }
    return pending;
}

void CCDevicePortPipe::IncrementPending() noexcept
{
    const CCriticalSectionHelper lock(m_PendingSection);
    ++PendingCount;
}

void CCDevicePortPipe::ResetPending() noexcept
{
    const CCriticalSectionHelper lock(m_PendingSection);
    PendingCount = 0;
}

std::int32_t CCDevicePortPipe::Pending() noexcept
{
    const CCriticalSectionHelper lock(m_PendingSection);
    return PendingCount;
}

bool CCDevicePortPipe::MayRead() noexcept
{
    return Pending() < MaximumPending;
}
