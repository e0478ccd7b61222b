#include "ports/PipeWorker.h"

#include "trace/Trace.h"

#include <algorithm>
#include <new>

namespace {

constexpr DWORD QuietTime = 50;       // ms
constexpr DWORD NotReadyTime = 1000;  // ms between two looks for a device connection
constexpr DWORD PermissionTime = 100; // ms
constexpr int IdlePassesBetweenTraces = 100;

// How long the next request may wait for the write of the last one to begin.
constexpr DWORD WriteBeginTime = 100; // ms

// Of so many milliseconds since a time of GetTickCount64; 0 when they have passed.
DWORD WhatIsLeft(DWORD milliseconds, ULONGLONG since, ULONGLONG now)
{
    return now - since < milliseconds ? milliseconds - static_cast<DWORD>(now - since) : 0;
}

// Duplex, overlapped; messages towards the client, bytes from it, blocking mode. The router reads bytes on purpose:
// a client message longer than the read buffer arrives in pieces instead of failing.
constexpr DWORD OpenMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;
constexpr DWORD PipeMode = PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT;

} // namespace

PipeWorker::PipeWorker(CCDevicePortPipe& port)
    : m_port(port),
      m_fullName("\\\\.\\pipe\\" + port.m_PipeName),
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
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread Started (%s)",
          m_fullName.c_str());
    m_port.RequestPipeRecreate();
    while (m_running) {
        Handle(Wait());
        ::Sleep(0);
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread Ended (%s)",
          m_fullName.c_str());
}

PipeWorker::Slot PipeWorker::Wait()
{
    // Asked once, for a read may complete at any moment.
    const bool held = !WriteHasBegun() && m_read.IsAwaited() && !m_read.IsRunning();
    const bool hearsRead = m_read.IsAwaited() && !held;
    // With a read under way there is nothing to enable, and to hear of it all the same would cost the port 100 ms for
    // each packet whose write begins: see ReadOn.
    const bool hearsReadEnable = !m_reading || held;
    const bool readEnabled = m_port.ReadEnableEvent.Look(hearsReadEnable) && hearsReadEnable;

    const Slot known = KnownSlot(readEnabled, hearsRead);
    if (known != Slot::Failed) {
        return known;
    }
    const ULONGLONG now = ::GetTickCount64();
    // A packet that is queued while the one before is still being written costs the port 100 ms, in which it does
    // nothing at all. A client that reads takes far less to make room. So for that long the end of the write is let go
    // first, and everything else but the queue with it; then the client is slow indeed, and the queue counts again.
    const DWORD writeMayTake = m_write.IsPending() ? WhatIsLeft(PermissionTime, m_writingSince, now) : 0;
    DWORD patience = writeMayTake > 0 ? std::min(QuietTime, writeMayTake) : QuietTime;
    if (held) {
        patience = std::min(patience, WhatIsLeft(WriteBeginTime, m_awaitingSince, now));
    }
    // Reading that was enabled while nobody listened left the event unsignalled. So what stands behind it in the list does
    // not count, and what stands in front of it counts only if it is there already.
    auto heard = Waits::Heard::All();
    heard.If(Slot::Connected, m_connect.IsAwaited())
        .If(Slot::Written, m_write.IsAwaited())
        .If(Slot::ReadEnabled, hearsReadEnable)
        .If(Slot::ReadDone, hearsRead && !readEnabled)
        .If(Slot::PacketQueued, writeMayTake == 0 && !readEnabled);
    const Slot slot = m_waits.Any(heard, readEnabled ? 0 : patience);
    return readEnabled && slot == Slot::TimedOut ? Slot::ReadEnabled : slot;
}

// What a wait would find, where that is known without one: the mirrors and the operations tell that nothing in front of
// it in the list is signalled. Failed when it is not known.
PipeWorker::Slot PipeWorker::KnownSlot(bool readEnabled, bool hearsRead) const
{
    const auto mayHaveEnded = [](const win32::OverlappedOperation& operation) {
        return operation.IsAwaited() && !operation.IsRunning();
    };
    if (m_port.StopEvent.IsSet() || m_port.m_RecreateRequested || mayHaveEnded(m_connect)) {
        return Slot::Failed;
    }
    if (m_write.CompletedAtStart()) {
        return Slot::Written;
    }
    if (mayHaveEnded(m_write)) {
        return Slot::Failed;
    }
    if (readEnabled) {
        return Slot::ReadEnabled;
    }
    if (hearsRead && mayHaveEnded(m_read)) {
        return m_read.CompletedAtStart() ? Slot::ReadDone : Slot::Failed;
    }
    if (m_writeComplete && !m_write.IsAwaited() && m_port.OutQueue.GetCount() > 0) {
        return Slot::PacketQueued;
    }
    return Slot::Failed;
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
              m_fullName.c_str(), queued, m_port.Pending());
    }
}

void PipeWorker::OnStop()
{
    m_port.m_IsPipeConnected = false;
    if (m_pipe) {
        Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) PipeProcessThread shutting down...",
              m_fullName.c_str());
        ClosePipe();
    }
    m_port.OutQueue.DestroyAll();
    m_running = false;
}

void PipeWorker::OnRecreate()
{
    m_port.m_RecreateRequested = false; // from here on a request means another re-creation
    m_awaitingWriteBegin = false;
    if (m_pipe) {
        m_port.m_IsPipeConnected = false;
        ClosePipe();
    }
    m_port.OutQueue.DestroyAll();
    if (m_port.m_Transport != nullptr && m_port.m_Transport->IsReady()) {
        CreatePipe();
    } else if (!m_port.StopEvent.Wait(NotReadyTime)) {
        m_port.RequestPipeRecreate();
    }
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
              m_fullName.c_str(), static_cast<int>(m_security->Error()));
        return;
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) Pipe Created %d th time, waiting for connection...",
          m_fullName.c_str(), m_creations++);
    if (m_pipe) {
        m_connect.Settle();
        m_read.Settle();
        m_write.Settle();
        // A client that was faster than this call is noticed by its first message, or thrown out and let in again
        // by the next re-creation: the result is not looked at.
        m_connect.ConnectPipe(m_pipe.Get());
    }
}

void PipeWorker::ClosePipe()
{
    m_connect.Cancel();
    m_read.Cancel();
    m_write.Cancel();
    ::FlushFileBuffers(m_pipe.Get());
    ::DisconnectNamedPipe(m_pipe.Get());
    m_pipe.Reset();
    // What was cancelled belongs to the closed pipe: its completions must not be taken for the next one's.
    m_connect.Settle();
    m_read.Settle();
    m_write.Settle();
}

void PipeWorker::OnConnected()
{
    m_connect.Settle();
    m_read.Settle();
    m_write.Settle();
    Trace(m_port.m_DeviceType, trace::DevicePipe, "CCDevicePortPipe::PipeProcessThread (%s) Connected",
          m_fullName.c_str());
    DWORD unused = 0;
    if (!m_connect.Finish(m_pipe.Get(), unused)) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_SUCCESS) {
            Trace(m_port.m_DeviceType, trace::DevicePipe,
                  "CCDevicePortPipe::PipeProcessThread (%s) Open Pipe Broken (%d)", m_fullName.c_str(),
                  static_cast<int>(error));
            m_port.RequestPipeRecreate();
        }
        return;
    }
    if (!m_readBuffer) {
        return; // a port that cannot read never counts as connected
    }
    Trace(m_port.m_DeviceType, trace::DevicePipe, "(%s) Pipe connected", m_fullName.c_str());
    m_port.ResetPending();
    m_reading = false;
    m_awaitingWriteBegin = false;
    m_port.ReadEnableEvent.Set();
    m_port.m_IsPipeConnected = true;
    m_writeComplete = true;
}

void PipeWorker::OnWritten()
{
    m_write.Settle();
    DWORD unused = 0;
    if (m_write.Finish(m_pipe.Get(), unused)) {
        m_writeComplete = true;
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Write Pipe Broken (%d)", m_fullName.c_str(),
              static_cast<int>(error));
        m_port.RequestPipeRecreate();
    }
}

void PipeWorker::OnReadEnabled()
{
    if (!m_port.ReadEnableEvent.Take()) {
        return;
    }
    if (m_reading) {
        m_awaitingWriteBegin = false;
    } else if (m_port.MayRead()) {
        StartRead();
    } else {
        ::Sleep(PermissionTime);
    }
}

void PipeWorker::StartRead()
{
    m_reading = true;
    if (!m_readBuffer) {
        return;
    }
    if (m_read.IsPending()) {
        // Started before the client's connection was noticed. It may have the first message already, and noticing the
        // connection has reset the event that said so.
        if (m_read.HasCompleted()) {
            m_read.SignalEvent();
        }
        return;
    }
    const bool started =
        m_read.Read(m_pipe.Get(), m_readBuffer.get(), static_cast<DWORD>(m_port.m_ReadBufferSize));
    // A client that left right after its last message lets the read fail at once, and Windows sets no event for
    // that: without this the port would stay connected to nobody. A pipe still listening refuses reads as well; that
    // one is none of the client's doing and is passed over.
    if (!started && m_port.IsPipeConnected()) {
        m_read.SignalEvent();
    }
}

void PipeWorker::OnReadDone()
{
    if (!WriteHasBegun()) {
        return;
    }
    m_reading = false;
    if (!m_port.IsPipeConnected()) {
        m_port.m_IsPipeConnected = true;
        m_writeComplete = true;
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Pipe connect event NEVER received, compensating",
              m_fullName.c_str());
    }
    // The read event deliberately stays set until the next read starts: while too many packets are pending the same
    // packet is handed over again about every 100 ms.
    DWORD length = 0;
    if (m_read.Finish(m_pipe.Get(), length)) {
        if (m_readBuffer) {
            ReadOn(m_port.OnPipePacket(m_readBuffer.get(), static_cast<std::int32_t>(length)));
        }
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread (%s) Read Pipe Broken (%d)", m_fullName.c_str(),
              static_cast<int>(error));
        m_port.RequestPipeRecreate();
    }
}

// After a message the read-enable event is to be set, and it is set again when the packet's write begins. Were both taken
// as they come, the second would find a read in progress and cost the port 100 ms. So the first is taken here at once,
// and the second only tells that the next message may be handled: until then that waits, in the read buffer or in the
// pipe, where what the client goes on writing merges with it. With more packets pending the instrument is behind
// anyway, and reading goes on without waiting for it.
void PipeWorker::ReadOn(bool submitted)
{
    m_port.ReadEnableEvent.Take(); // set before this packet, or taken here
    const std::int32_t pending = m_port.Pending();
    if (!submitted || pending > 1) {
        m_port.ReadEnableEvent.Set();
        return;
    }
    if (pending == 1) {
        m_awaitingWriteBegin = true;
        m_awaitingSince = ::GetTickCount64();
    }
    StartRead();
}

// Whether the next message may be handled.
bool PipeWorker::WriteHasBegun()
{
    if (m_awaitingWriteBegin &&
        (m_port.ReadEnableEvent.Take() || WhatIsLeft(WriteBeginTime, m_awaitingSince, ::GetTickCount64()) == 0))
    {
        m_awaitingWriteBegin = false;
    }
    return !m_awaitingWriteBegin;
}

void PipeWorker::OnPacketQueued()
{
    if (m_port.OutQueue.GetCount() == 0) {
        m_port.OutQueue.Settle(); // set late: what it told of is written already
    } else if (m_writeComplete) {
        WriteNext();
        m_port.OutQueue.Settle(); // not before the write, for which the client waits
    } else if (m_pipe) {
        ::Sleep(PermissionTime);
        Trace(m_port.m_DeviceType, trace::DevicePipe,
              "CCDevicePortPipe::PipeProcessThread(%s) Write permission denied, %d To-Device packets, %d "
              "From-Device "
              "packets",
              m_fullName.c_str(), m_port.OutQueue.GetCount(), m_port.Pending());
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
        m_write.SignalEvent(); // refused: reported like any other broken write
    }
    std::string dump;
    if (DumpPacket(m_port.m_DeviceType, trace::PacketParsing, m_lastWritten->GetData(), length, false, dump) &&
        !dump.empty())
    {
        Trace(m_port.m_DeviceType, trace::PacketParsing, "DEV<-PCR[%02d,%02d][%03d] %s", m_port.m_DeviceType,
              m_port.m_Port, static_cast<int>(length), dump.c_str());
    }
}
