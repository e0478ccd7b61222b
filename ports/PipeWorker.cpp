#include "ports/PipeWorker.h"

#include "trace/Trace.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>

namespace {

using win32::Expectation;

constexpr DWORD QuietTimeMs = 50;
constexpr DWORD NotReadyTimeMs = 1000; // between two looks for a device connection
constexpr DWORD PermissionTimeMs = 100;
constexpr int IdlePassesBetweenTraces = 100;

Expectation NowIf(bool happened)
{
    return happened ? Expectation::Now : Expectation::NotYet;
}

// For trace texts: a name with line breaks in it must not look like further lines of the log.
std::string Printable(const std::string& name)
{
    std::string shown;
    for (const char character : name) {
        if (static_cast<unsigned char>(character) < 0x20) {
            std::array<char, 5> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(character));
            shown += escape.data();
        } else {
            shown += character;
        }
    }
    return shown;
}

// Duplex, overlapped; messages towards the client, bytes from it, blocking mode. The router reads bytes on purpose:
// a client message longer than the read buffer arrives in pieces instead of failing.
constexpr DWORD OpenMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;
constexpr DWORD PipeMode = PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT;

} // namespace

PipeWorker::PipeWorker(CCDevicePortPipe& port)
    : m_port(port),
      m_fullName("\\\\.\\pipe\\" + port.m_PipeName),
      m_shownName(Printable(m_fullName)),
      m_readBuffer(port.m_ReadBufferSize > 0 ? new(std::nothrow)
                                                   std::uint8_t[static_cast<std::size_t>(port.m_ReadBufferSize)]
                                             : nullptr),
      m_security(port.m_restrictPipe ? std::make_unique<win32::OwnUserSecurity>() : nullptr),
      m_waits(port.StopEvent.Get(), port.RecreateEvent.Get(), m_connect.EventHandle(), m_write.EventHandle(),
              port.ReadEnableEvent.Get(), m_read.EventHandle(), port.OutQueue.GetNotEmptyEvent())
{
}

void PipeWorker::Run()
{
    if (!m_waits.HasAll()) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread has no events, port not served (%s)", m_shownName.c_str());
        return;
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread Started (%s)",
          m_shownName.c_str());
    m_port.RequestPipeRecreate();
    while (m_running) {
        Handle(Wait());
        ::Sleep(0);
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread Ended (%s)",
          m_shownName.c_str());
}

PipeWorker::Slot PipeWorker::Wait()
{
    const DWORD writeMayTake = TimeLeftForWrite();
    return m_waits.Next({NowIf(m_port.StopEvent.IsSet()), NowIf(m_port.RecreateEvent.Look(true)),
                         m_connect.Expected(), m_write.Expected(), ExpectReadEnabled(), ExpectRead(),
                         writeMayTake > 0 ? Expectation::Never : NowIf(m_port.OutQueue.GetCount() > 0)},
                        writeMayTake > 0 ? std::min(QuietTimeMs, writeMayTake) : QuietTimeMs);
}

// A packet that is queued while the one before is still being written costs the port 100 ms, in which it does nothing at
// all. A client that reads takes far less to make room. So for that long the queue is not looked at; after that the
// client counts as stalled, and the queue counts again.
DWORD PipeWorker::TimeLeftForWrite() const
{
    if (!m_write.IsPending()) {
        return 0;
    }
    const ULONGLONG passed = ::GetTickCount64() - m_writingSince;
    return passed < PermissionTimeMs ? static_cast<DWORD>(PermissionTimeMs - passed) : 0;
}

// A read that is in progress needs no enabling. The transport enables the next one each time that it begins to write a
// packet; taken as it comes, that would cost the port 100 ms for each packet.
win32::Expectation PipeWorker::ExpectReadEnabled()
{
    const bool enabled = m_port.ReadEnableEvent.Look(!m_reading);
    return m_reading ? Expectation::Never : NowIf(enabled);
}

win32::Expectation PipeWorker::ExpectRead() const
{
    return m_handedOver > 0 ? Expectation::Now : m_read.Expected();
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
    if (!m_port.IsPipeConnected()) {
        // While nobody is connected the pipe is created anew at every time-out. That is the intended way of waiting:
        // a client that died between connect and first read leaves nothing behind.
        m_port.RequestPipeRecreate();
        return;
    }
    if (m_idlePasses++ < IdlePassesBetweenTraces) {
        return;
    }
    m_idlePasses = 0;
    const std::int32_t queued = m_port.OutQueue.GetCount();
    if (queued >= 1) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread(%s) IDLE, %d To-Device packets, %d From-Device packets",
              m_shownName.c_str(), queued, m_port.Pending());
    }
}

void PipeWorker::OnStop()
{
    HandOverLastMessage();
    m_port.m_IsPipeConnected = false;
    if (m_pipe) {
        Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) PipeProcessThread shutting down...",
              m_shownName.c_str());
        ClosePipe();
    }
    m_port.OutQueue.DestroyAll();
    m_running = false;
}

void PipeWorker::OnRecreate()
{
    if (!m_port.RecreateEvent.Take()) {
        return; // the event of a request that was taken without waiting for it
    }
    HandOverLastMessage();
    if (m_pipe) {
        m_port.m_IsPipeConnected = false;
        ClosePipe();
    }
    m_port.OutQueue.DestroyAll();
    // From here on; a connection that is lost later than this asks for another re-creation.
    m_port.m_lossesAtCreation = m_port.m_connectionLosses.load();
    if (m_port.m_Transport != nullptr && m_port.m_Transport->IsReady()) {
        CreatePipe();
    } else if (!m_port.StopEvent.Wait(NotReadyTimeMs)) {
        m_port.RequestPipeRecreate();
    }
}

// A read may have completed without its message having been handed over, before the cancel or in spite of it.
void PipeWorker::HandOverLastMessage()
{
    DWORD length = 0;
    if (m_read.CancelAndFinish(length) && m_readBuffer) {
        m_port.OnPipePacket(m_readBuffer.get(), static_cast<std::int32_t>(length));
    }
    m_handedOver = 0;
}

void PipeWorker::CreatePipe()
{
    const auto outSize = static_cast<DWORD>(m_port.m_ReadBufferSize);
    const auto inSize = static_cast<DWORD>(m_port.m_WriteBufferSize);
    if (!m_security) {
        m_pipe.Reset(::CreateNamedPipeA(m_fullName.c_str(), OpenMode, PipeMode, 1, outSize, inSize, 0, nullptr));
    } else if (*m_security) {
        m_pipe.Reset(::CreateNamedPipeA(m_fullName.c_str(), OpenMode, PipeMode | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                        outSize, inSize, 0, m_security->Attributes()));
    } else {
        // Rather no pipe than one that everybody may open.
        Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) Pipe cannot be restricted (%d), not created",
              m_shownName.c_str(), static_cast<int>(m_security->Error()));
        return;
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) Pipe Created %d th time, waiting for connection...",
          m_shownName.c_str(), m_creations++);
    if (m_pipe) {
        // Any other refusal is passed over: the next re-creation tries again.
        m_connect.ConnectPipe(m_pipe.Get());
    }
}

// The read has been cancelled before.
void PipeWorker::ClosePipe()
{
    m_connect.Cancel();
    m_write.Cancel();
    ::FlushFileBuffers(m_pipe.Get());
    ::DisconnectNamedPipe(m_pipe.Get());
    m_pipe.Reset();
}

void PipeWorker::OnConnected()
{
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread (%s) Connected",
          m_shownName.c_str());
    DWORD unused = 0;
    if (!m_connect.Finish(m_pipe.Get(), unused)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_SUCCESS) {
            Trace(m_port.m_DeviceType, trace::DevicePipe,
                  "CCDevicePortPipe::PipeProcessThread (%s) Open Pipe Broken (%d)", m_shownName.c_str(),
                  static_cast<int>(error));
            m_port.RequestPipeRecreate();
        }
        return;
    }
    if (!m_readBuffer) {
        return; // a port that cannot read never counts as connected
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) Pipe connected", m_shownName.c_str());
    m_port.ResetPending();
    m_reading = false;
    m_handedOver = 0;
    m_port.ReadEnableEvent.Set();
    m_port.m_IsPipeConnected = true;
    m_writeComplete = true;
}

void PipeWorker::OnWritten()
{
    DWORD unused = 0;
    if (m_write.Finish(m_pipe.Get(), unused)) {
        m_writeComplete = true;
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Write Pipe Broken (%d)", m_shownName.c_str(),
              static_cast<int>(error));
        m_port.RequestPipeRecreate();
    }
}

void PipeWorker::OnReadEnabled()
{
    if (!m_port.ReadEnableEvent.Take()) {
        return; // the event of a setting that was taken without waiting for it
    }
    if (m_port.MayRead()) {
        StartRead();
    } else {
        ::Sleep(PermissionTimeMs);
    }
}

void PipeWorker::StartRead()
{
    m_reading = true;
    m_handedOver = 0;
    if (!m_readBuffer || m_read.IsPending()) {
        return; // started before the client's connection was noticed: it may hold the first message
    }
    const bool started =
        m_read.Read(m_pipe.Get(), m_readBuffer.get(), static_cast<DWORD>(m_port.m_ReadBufferSize));
    // A client that left right after its last message lets the read fail at once, for which Windows sets no event:
    // without this the port would stay connected to nobody. A pipe still listening refuses reads as well; that is
    // none of the client's doing and is passed over.
    if (!started && m_port.IsPipeConnected()) {
        m_read.ReportRefusal();
    }
}

void PipeWorker::OnReadDone()
{
    m_reading = false;
    if (!m_port.IsPipeConnected()) {
        m_port.m_IsPipeConnected = true;
        m_writeComplete = true;
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Pipe connect event NEVER received, compensating",
              m_shownName.c_str());
    }
    DWORD length = 0;
    if (m_read.Finish(m_pipe.Get(), length)) {
        HandOver(length);
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Read Pipe Broken (%d)", m_shownName.c_str(),
              static_cast<int>(error));
        m_port.RequestPipeRecreate();
    }
}

// After a message the read-enable event is to be set, upon which the next read starts; that is done here at once. By
// design, with too many packets pending no read starts and the same message is handed over again about every 100 ms.
void PipeWorker::HandOver(DWORD length)
{
    m_port.ReadEnableEvent.Take(); // older than this message; what the transport sets from here on counts
    if (m_readBuffer) {
        m_port.OnPipePacket(m_readBuffer.get(), static_cast<std::int32_t>(length));
    }
    if (m_port.MayRead()) {
        StartRead();
    } else {
        m_handedOver = length;
        m_port.ReadEnableEvent.Set();
    }
}

void PipeWorker::OnPacketQueued()
{
    if (m_port.OutQueue.GetCount() == 0) {
        m_port.OutQueue.Settle(); // set late: what it told of is written already
    } else if (m_writeComplete) {
        WriteNext();
        m_port.OutQueue.Settle(); // not before the write, for which the client waits
    } else if (m_pipe) {
        ::Sleep(PermissionTimeMs);
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread(%s) Write permission denied, %d To-Device packets, %d "
              "From-Device "
              "packets",
              m_shownName.c_str(), m_port.OutQueue.GetCount(), m_port.Pending());
    } else {
        m_port.OutQueue.DestroyAll();
    }
}

void PipeWorker::WriteNext()
{
    m_lastWritten.reset(m_port.OutQueue.Take());
    if (!m_lastWritten || m_lastWritten->GetLength() < 1) {
        return;
    }
    const auto length = static_cast<std::uint32_t>(m_lastWritten->GetLength());
    m_writeComplete = false;
    m_writingSince = ::GetTickCount64();
    if (!m_write.Write(m_pipe.Get(), m_lastWritten->GetData(), length)) {
        m_write.ReportRefusal(); // refused: reported like any other broken write
    }
    std::string dump;
    if (DumpPacket(m_port.m_DeviceType, trace::PacketParsing, m_lastWritten->GetData(), length, false, dump) &&
        !dump.empty())
    {
        Trace(m_port.m_DeviceType, trace::PacketParsing, "DEV<-PCR[%02d,%02d][%03d] %s", m_port.m_DeviceType,
              m_port.m_Port, static_cast<int>(length), dump.c_str());
    }
}
