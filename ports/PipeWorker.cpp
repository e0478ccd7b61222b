#include "ports/PipeWorker.h"

#include "trace/Trace.h"

#include <algorithm>

namespace {

using win32::Expectation;
using win32::NowIf;

constexpr DWORD IdleTimeoutMs = 50;
constexpr DWORD NotReadyTimeMs = 1000; // between two looks for a device connection
constexpr int IdlePassesBetweenTraces = 100;

} // namespace

PipeWorker::PipeWorker(const PortSettings& settings, PortState& state, CCommunicationDriver* transport,
                       OnMessage onMessage)
    : m_settings(settings),
      m_state(state),
      m_transport(transport),
      m_onMessage(std::move(onMessage)),
      m_server(settings),
      m_reader(settings.readBufferSize),
      m_waits(state.StopEvent.Get(), state.RecreateEvent.Get(), m_server.ConnectEvent(), m_writer.WriteEvent(),
              state.ReadEnableEvent.Get(), m_reader.ReadEvent(), state.OutQueue.GetNotEmptyEvent())
{
}

void PipeWorker::Run()
{
    if (!m_waits.HasAll()) {
        TraceName("CCDevicePortPipe::PipeProcessThread has no events, port not served (%s)");
        return;
    }
    TraceName("CCDevicePortPipe::PipeProcessThread Started (%s)");
    m_state.RecreateEvent.Set();
    while (m_running) {
        Handle(Wait());
        ::Sleep(0);
    }
    TraceName("CCDevicePortPipe::PipeProcessThread Ended (%s)");
}

PipeWorker::Slot PipeWorker::Wait()
{
    const DWORD writeTimeLeftMs = m_writer.TimeLeftMs();
    const bool waitsForWrite = writeTimeLeftMs > 0;
    return m_waits.Next({NowIf(m_state.StopEvent.IsSet()), NowIf(m_state.RecreateEvent.Arm()),
                         m_server.ExpectConnect(), m_writer.ExpectWrite(), ExpectReadEnabled(),
                         m_reader.ExpectRead(),
                         waitsForWrite ? Expectation::Never : NowIf(m_state.OutQueue.GetCount() > 0)},
                        waitsForWrite ? std::min(IdleTimeoutMs, writeTimeLeftMs) : IdleTimeoutMs);
}

// The transport enables the next read each time that it begins to write a packet. Taken while a read is in
// progress, that would cost the port 100 ms for each packet.
Expectation PipeWorker::ExpectReadEnabled()
{
    const bool isEnabled = m_reader.IsReading() ? m_state.ReadEnableEvent.Disarm() : m_state.ReadEnableEvent.Arm();
    return m_reader.IsReading() ? Expectation::Never : NowIf(isEnabled);
}

void PipeWorker::Handle(Slot slot)
{
    if (slot != Slot::TimedOut && slot != Slot::Failed) {
        m_idlePasses = 0;
    }
    switch (slot) {
    case Slot::Stop: return OnStop();
    case Slot::Recreate: return OnRecreate();
    case Slot::Connected: return OnConnected();
    case Slot::Written: return OnWritten();
    case Slot::ReadEnabled: return OnReadEnabled();
    case Slot::ReadDone: return OnReadDone();
    case Slot::PacketQueued: return OnPacketQueued();
    case Slot::TimedOut: return OnQuiet();
    case Slot::Failed: return;
    }
}

void PipeWorker::OnQuiet()
{
    if (!m_state.IsPipeConnected) {
        // By design: while no client is connected the pipe is recreated at every timeout. A client that died
        // between connect and first read leaves nothing open.
        m_state.RecreateEvent.Set();
        return;
    }
    if (m_idlePasses++ < IdlePassesBetweenTraces) {
        return;
    }
    m_idlePasses = 0;
    const std::int32_t queued = m_state.OutQueue.GetCount();
    if (queued >= 1) {
        Trace(m_settings.address.deviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread(%s) IDLE, %d To-Device packets, %d From-Device packets",
              m_server.ShownName(), queued, m_state.Pending.Count());
    }
}

void PipeWorker::OnStop()
{
    HandOverLastMessage();
    m_state.IsPipeConnected = false;
    if (m_server.Exists()) {
        TraceName("(%s) PipeProcessThread shutting down...");
        ClosePipe();
    }
    m_state.OutQueue.DestroyAll();
    m_running = false;
}

void PipeWorker::OnRecreate()
{
    if (!m_state.RecreateEvent.Take()) {
        return; // the event of a request that was taken without waiting for it
    }
    HandOverLastMessage();
    if (m_server.Exists()) {
        m_state.IsPipeConnected = false;
        ClosePipe();
    }
    m_state.OutQueue.DestroyAll();
    // A connection that is lost after this line requests another recreation.
    m_state.lossesAtCreation = m_state.connectionLosses.load();
    if (m_transport != nullptr && m_transport->IsReady()) {
        m_server.Create();
    } else if (!m_state.StopEvent.Wait(NotReadyTimeMs)) {
        m_state.RecreateEvent.Set();
    }
}

void PipeWorker::HandOverLastMessage()
{
    if (const auto message = m_reader.Cancel()) {
        m_onMessage(*message);
    }
}

void PipeWorker::ClosePipe()
{
    m_writer.Cancel();
    m_server.Close();
}

void PipeWorker::OnConnected()
{
    TraceName("CCDevicePortPipe::PipeProcessThread (%s) Connected");
    if (!m_server.FinishConnect()) {
        return Recreate("CCDevicePortPipe::PipeProcessThread (%s) Open Pipe Broken (%d)", ::GetLastError());
    }
    if (!m_reader.HasBuffer()) {
        return; // a port that cannot read never counts as connected
    }
    TraceName("(%s) Pipe connected");
    m_state.Pending.Reset();
    m_reader.ResetState();
    m_state.ReadEnableEvent.Set();
    m_state.IsPipeConnected = true;
    m_writer.Permit();
}

void PipeWorker::OnWritten()
{
    if (!m_writer.Finish(m_server.Pipe())) {
        Recreate("CCDevicePortPipe::PipeProcessThread (%s) Write Pipe Broken (%d)", ::GetLastError());
    }
}

void PipeWorker::OnReadEnabled()
{
    if (!m_state.ReadEnableEvent.Take()) {
        return; // the event of a setting that was taken without waiting for it
    }
    if (m_state.Pending.MayRead()) {
        // A listening pipe refuses reads as well; that is no fault of the client and is passed over.
        m_reader.Start(m_server.Pipe(), m_state.IsPipeConnected);
    } else {
        ::Sleep(ReplyWriter::PermissionTimeMs);
    }
}

void PipeWorker::OnReadDone()
{
    const auto message = m_reader.Finish(m_server.Pipe());
    const DWORD error = message ? ERROR_SUCCESS : ::GetLastError();
    if (!m_state.IsPipeConnected) {
        m_state.IsPipeConnected = true;
        m_writer.Permit();
        TraceName("CCDevicePortPipe::PipeProcessThread (%s) Pipe connect event NEVER received, compensating");
    }
    if (message) {
        HandOver(*message);
    } else {
        Recreate("CCDevicePortPipe::PipeProcessThread (%s) Read Pipe Broken (%d)", error);
    }
}

// Each message enables the next read, which starts here at once. By design, with too many packets pending no read
// starts and the same message is handed over again about every 100 ms.
void PipeWorker::HandOver(RequestReader::Message message)
{
    m_state.ReadEnableEvent.Take(); // older than this message; what the transport sets after this line counts
    m_onMessage(message);
    if (m_state.Pending.MayRead()) {
        m_reader.Start(m_server.Pipe(), m_state.IsPipeConnected);
    } else {
        m_reader.KeepForRepeat(message);
        m_state.ReadEnableEvent.Set();
    }
}

void PipeWorker::OnPacketQueued()
{
    if (m_state.OutQueue.GetCount() == 0) {
        m_state.OutQueue.ResetEventIfEmpty(); // signalled late: its packet has been written already
    } else if (m_writer.MayWrite()) {
        WriteNext();
        m_state.OutQueue.ResetEventIfEmpty(); // only after the write, for which the client waits
    } else if (m_server.Exists()) {
        ::Sleep(ReplyWriter::PermissionTimeMs);
        Trace(m_settings.address.deviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread(%s) Write permission denied, %d To-Device packets, "
              "%d From-Device packets",
              m_server.ShownName(), m_state.OutQueue.GetCount(), m_state.Pending.Count());
    } else {
        m_state.OutQueue.DestroyAll();
    }
}

void PipeWorker::WriteNext()
{
    const CSerialPortCommand* const packet = m_writer.Start(m_server.Pipe(), m_state.OutQueue.Take());
    if (packet == nullptr) {
        return;
    }
    const PortAddress address = m_settings.address;
    if (const std::string dump = PacketDump(address.deviceType, trace::PacketParsing, packet->Bytes());
        !dump.empty())
    {
        Trace(address.deviceType, trace::PacketParsing, "DEV<-PCR[%02d,%02d][%03d] %s", address.deviceType,
              address.port, packet->GetLength(), dump.c_str());
    }
}

// A failure without an error of Windows is passed over.
void PipeWorker::Recreate(const char* broken, DWORD error)
{
    if (error != ERROR_SUCCESS) {
        // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): each caller passes a literal with %s and %d
        Trace(m_settings.address.deviceType, trace::DevicePipe, broken, m_server.ShownName(),
              static_cast<int>(error));
        m_state.RecreateEvent.Set();
    }
}

void PipeWorker::TraceName(const char* format)
{
    Trace(m_settings.address.deviceType, trace::DevicePipe, format, m_server.ShownName());
}
