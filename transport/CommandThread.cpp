#include "transport/CommandThread.h"

#include "trace/Trace.h"

#include <new>
#include <string>
#include <utility>

namespace {

using win32::Expectation;

constexpr DWORD TimeBetweenAttemptsMs = 10;
// Longer than any pause within a burst: the resolution is not raised and restored per packet.
constexpr DWORD ResolutionHoldMs = 1000;
constexpr int AttemptsPerTrace = 20;
constexpr int PassesPerReport = 5;

void NotifyState(bool connected)
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::NotifyState(%s)",
          connected ? "Connected" : "Not Connected");
}

/// Sleeps for a whole millisecond. A single Sleep(1) may be shorter: it counts the ticks of the system timer, and
/// the first one may be over at once ("Sleep function").
void SleepOneMillisecond() noexcept
{
    // "QueryPerformanceCounter function": neither call fails on any Windows since XP.
    LARGE_INTEGER frequency{};
    LARGE_INTEGER now{};
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&now);
    const LONGLONG end = now.QuadPart + frequency.QuadPart / 1000;
    do {
        ::Sleep(1);
        ::QueryPerformanceCounter(&now);
    } while (now.QuadPart < end);
}

} // namespace

CommandThread::CommandThread(const CommandParts& parts)
    : m_parts(parts),
      m_connection(parts.connection),
      m_link(parts.link),
      m_queue(parts.outgoing.Queue()),
      m_traits(m_link.GetTraits()),
      m_waits(m_connection.m_hStop.Get(), m_connection.m_hDisconnected.Get(), m_link.ReadEvent(),
              m_link.WriteEvent(), m_queue.GetNotEmptyEvent())
{
    // A read event is missing by design where another thread reads.
    if (m_link.WriteEvent() == nullptr || m_connection.m_hStop.Get() == nullptr ||
        m_connection.m_hDisconnected.Get() == nullptr || m_queue.GetNotEmptyEvent() == nullptr)
    {
        throw std::bad_alloc();
    }
}

void CommandThread::Run()
{
    Trace(trace::RouterChannel, trace::Usb, "%s", m_traits.texts.started);
    while (m_running) {
        try {
            Handle(Wait());
        } catch (...) {
            Trace(trace::RouterChannel, trace::Usb, "%s", m_traits.texts.failed);
            m_connection.m_hDisconnected.Set();               // whatever failed, a new connection puts it right
            m_connection.m_hStop.Wait(TimeBetweenAttemptsMs); // what fails each time must not fill the log
        }
        ::Sleep(0);
        if (m_connection.m_bTerminate) {
            m_parts.watch.RequestQuit();
            m_running = false;
        }
    }
    Trace(trace::RouterChannel, trace::Usb, "%s", m_traits.texts.ended);
}

CommandThread::Slot CommandThread::Wait() const
{
    return m_waits.Next({win32::NowIf(m_connection.m_hStop.IsSet()), win32::NowIf(!m_connection.IsOpen()),
                         m_link.ExpectRead(), m_link.ExpectWrite(), Expectation::NotYet},
                        TransportIdleMs);
}

void CommandThread::Handle(Slot slot)
{
    switch (slot) {
    case Slot::Stop: return OnStop();
    case Slot::Disconnected: return OnDisconnected();
    case Slot::ReadDone: return m_link.FinishRead();
    case Slot::WriteDone: return OnWriteDone();
    case Slot::CommandQueued: return OnCommandQueued();
    case Slot::TimedOut: return OnQuietSecond();
    case Slot::Failed: return;
    }
}

void CommandThread::OnStop()
{
    m_running = false;
    m_timerResolution.Restore();
    m_link.StopReading();
    m_link.Close();
    m_queue.DestroyAll();
}

void CommandThread::OnDisconnected()
{
    m_timerResolution.Restore();
    if (m_connection.IsOpen()) {
        // Another thread set the mirror, this thread connected and reset both, and only then did SetEvent arrive.
        // The link is closed below, so the mirror must say so, or a port takes it for a connection.
        m_connection.m_hDisconnected.Set();
    }
    if (m_connection.m_bFirstReadFailed.exchange(false)) {
        // A device that opens and refuses every read must not be reset on the bus without a pause.
        m_connection.m_hStop.Wait(TimeBetweenAttemptsMs);
    }
    if (m_connectAttempts++ % AttemptsPerTrace == 0) {
        Trace(trace::RouterChannel, trace::Usb, m_traits.texts.connecting, m_connectAttempts);
        Trace(trace::RouterChannel, trace::Usb, m_traits.texts.pendingWrites, m_queue.GetCount());
    }
    m_link.StopReading();
    NotifyState(false);
    m_connection.Ports().SignalAllPorts();
    m_link.Close();
    if (m_link.Open()) {
        OnOpened();
    } else {
        Trace(trace::RouterChannel, trace::Usb, "Connection to USB failed");
        m_connection.m_hDisconnected.Set();
        ::Sleep(TimeBetweenAttemptsMs);
    }
}

void CommandThread::OnOpened()
{
    m_connection.m_hDisconnected.Reset();
    NotifyState(true);
    if (!m_link.BeginReading()) {
        m_connection.Drop();
        ::Sleep(TimeBetweenAttemptsMs);
        return;
    }
    // A simulated instrument is ready as it is, and a lost connection makes the driver not ready as well.
    if (!m_parts.driver.IsReady() && m_connection.IsOpen()) {
        m_parts.firmware.Download();
    }
    m_parts.replies.BeginNumbering();
    m_parts.outgoing.SetNextNumber(0);
}

void CommandThread::OnWriteDone()
{
    const std::optional<TransferEnd> end = m_link.FinishWrite();
    if (!end) {
        return;
    }
    if (end->worked) {
        Trace(trace::RouterChannel, trace::Usb, m_traits.texts.written,
              static_cast<int>(m_traits.tracesBufferSize ? TransferLength : end->bytes));
        m_connection.CountTransferred(end->bytes);
    } else {
        Trace(trace::RouterChannel, trace::Usb, "Command-sent failed, reconnecting");
        if (end->error != ERROR_SUCCESS) {
            m_connection.Drop();
        }
    }
    ::Sleep(0);
}

void CommandThread::OnCommandQueued()
{
    if (m_queue.GetCount() == 0) {
        m_queue.ResetEventIfEmpty(); // signalled late: its packet has been written already
    } else if (!m_link.CanWrite()) {
        OnBusy();
    } else {
        WriteNext();
        m_queue.ResetEventIfEmpty(); // only after the write, for which a client waits
    }
}

void CommandThread::WriteNext()
{
    m_timerResolution.RestoreAfter(ResolutionHoldMs);
    std::unique_ptr<CSerialPortCommand> packet = m_queue.Take();
    if (packet && packet->GetLength() != 0) {
        if (const std::string dump = PacketDump(trace::RouterChannel, trace::ReadWrite, packet->Bytes());
            !dump.empty())
        {
            Trace(trace::RouterChannel, trace::ReadWrite, "PCR->USB[%d] %s", packet->GetLength(), dump.c_str());
        }
        const PortAddress address = packet->Address();
        m_link.BeginWrite(std::move(packet));
        m_connection.Ports().PacketCompleted(address);
    }
    if (m_traits.abortsWrites) {
        m_busyPasses = 0;
        m_idlePasses = 0;
    }
}

// Where writes are aborted, every sixth pass since the last write is due; where they are only reported, the first
// and every fifth after it, over all writes.
bool CommandThread::IsReportDue(int& passes) const noexcept
{
    if (!m_traits.abortsWrites) {
        return passes++ % PassesPerReport == 0;
    }
    if (passes++ < PassesPerReport) {
        return false;
    }
    passes = 0;
    return true;
}

void CommandThread::OnBusy()
{
    if (m_traits.abortsWrites) {
        // Six passes are to take about 6 ms; with Windows' usual timer of 15.6 ms they would take nearly 100.
        m_timerResolution.Raise();
    }
    SleepOneMillisecond();
    if (!IsReportDue(m_busyPasses)) {
        return;
    }
    Trace(trace::RouterChannel, trace::Usb, m_traits.texts.blocked, m_totalAborted);
    if (m_traits.abortsWrites && m_link.IsWriting()) {
        ++m_totalAborted;
        Trace(trace::RouterChannel, trace::Usb, m_traits.texts.aborts, m_totalAborted);
        m_link.AbortWrite();
    }
}

void CommandThread::OnQuietSecond()
{
    m_timerResolution.Restore();
    if (m_traits.watchesHosts && HostIsGone()) {
        Trace(trace::RouterChannel, trace::Usb, "Host application does not exist..So termintating port router...");
        m_connection.m_bTerminate = true;
        return;
    }
    if (m_queue.GetCount() == 0 && m_parts.driver.IsReady()) {
        m_parts.outgoing.SendIdlePacket();
    }
    if (!IsReportDue(m_idlePasses)) {
        return;
    }
    if (m_link.IsWriting()) {
        m_totalAborted += m_traits.abortsWrites ? 1 : 0;
        Trace(trace::RouterChannel, trace::Usb, m_traits.texts.idleBlocked, m_totalAborted);
        if (m_traits.abortsWrites) {
            m_link.AbortWrite();
        }
    }
    Trace(trace::RouterChannel, trace::Usb, m_traits.texts.idle, m_queue.GetCount());
}

bool CommandThread::HostIsGone() const
{
    return !m_parts.watch.IsStandalone() && m_parts.watch.FindProcess(m_parts.watch.GetFirstHostName()) == 0 &&
           m_parts.watch.FindProcess(m_parts.watch.GetSecondHostName()) == 0;
}
