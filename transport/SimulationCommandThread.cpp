#include "transport/SimulationCommandThread.h"

#include "trace/Trace.h"
#include "transport/Pauses.h"

#include <new>

namespace {

constexpr const char* SimulatorPipe = "\\\\.\\pipe\\UsbPipeSimulator";
constexpr DWORD QuietTime = 1000;      // ms
constexpr DWORD TimeBetweenScans = 10; // ms
constexpr int AttemptsPerTrace = 20;
constexpr int PassesPerTrace = 5;

} // namespace

void CCyUSBDriver::SimulationCommandProcessThread()
{
    try {
        SimulationCommandThread(*this).Run();
    } catch (...) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::SimulationCommandProcessThread() cannot run");
    }
}

SimulationCommandThread::SimulationCommandThread(CCyUSBDriver& driver)
    : m_driver(driver),
      m_readBuffer(std::make_unique<std::array<std::uint8_t, CCyUSBDriver::TransferLength>>()),
      m_waits(driver.m_hStop.Get(), driver.m_hDisconnected.Get(), m_read.EventHandle(), m_write.EventHandle(),
              driver.m_CommandQueue.GetNotEmptyEvent())
{
    if (m_read.EventHandle() == nullptr || m_write.EventHandle() == nullptr) {
        throw std::bad_alloc();
    }
}

void SimulationCommandThread::Run()
{
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::SimulationCommandProcessThread() started");
    while (m_running) {
        try {
            Handle(Wait());
        } catch (...) {
            Trace(trace::RouterChannel, trace::Usb,
                  "CCyUSBDriver::SimulationCommandProcessThread() failed, reconnecting");
            m_driver.m_hDisconnected.Set();          // whatever failed, a new connection puts it right
            m_driver.m_hStop.Wait(TimeBetweenScans); // what fails each time must not fill the log
        }
        ::Sleep(0);
    }
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::SimulationCommandProcessThread() ended");
}

SimulationCommandThread::Slot SimulationCommandThread::Wait() const
{
    // The simulator's pipe nearly always takes a write at once, and a read may find data there. A wait would find just
    // that, when nothing before it in the list is signalled, which the mirrors and the read tell; and for an operation
    // that was done at once no event is promised ("Named Pipe Server Using Overlapped I/O").
    if (!m_driver.m_hStop.IsSet() && !m_driver.m_hDisconnected.IsSet()) {
        if (m_read.IsAwaited() && m_read.CompletedAtStart()) {
            return Slot::ReadDone;
        }
        if (m_write.CompletedAtStart() && (!m_read.IsAwaited() || m_read.IsRunning())) {
            return Slot::WriteDone;
        }
    }
    auto heard = Waits::Heard::All();
    heard.If(Slot::ReadDone, m_read.IsAwaited()).If(Slot::WriteDone, m_write.IsAwaited());
    return m_waits.Any(heard, QuietTime);
}

void SimulationCommandThread::Handle(Slot slot)
{
    switch (slot) {
    case Slot::Stop: return OnStop();
    case Slot::Disconnected: return OnDisconnected();
    case Slot::ReadDone: return OnReadDone();
    case Slot::WriteDone: return OnWriteDone();
    case Slot::CommandQueued: return OnCommandQueued();
    case Slot::TimedOut: return OnQuietSecond();
    case Slot::Failed: return;
    }
}

void SimulationCommandThread::OnStop()
{
    m_driver.StopReadThreads();
    ClosePipe();
    m_driver.m_CommandQueue.DestroyAll();
    m_running = false;
}

void SimulationCommandThread::OnDisconnected()
{
    if (m_connectAttempts++ % AttemptsPerTrace == 0) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::SimulationCommandProcessThread(%dth try) looking for USB endpoints...",
              m_connectAttempts);
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::SimulationCommandProcessThread() %d pending writes",
              m_driver.m_CommandQueue.GetCount());
    }
    m_driver.NotifyState(false);
    m_driver.m_Host.SignalAllPorts();
    ClosePipe();
    m_pipe.Reset(::CreateFileA(SimulatorPipe, GENERIC_ALL, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr));
    if (m_pipe) {
        OnOpened();
    } else {
        Trace(trace::RouterChannel, trace::Usb, "Connection to USB failed");
        m_driver.m_hDisconnected.Set();
        ::Sleep(TimeBetweenScans);
    }
}

void SimulationCommandThread::OnOpened()
{
    Trace(trace::RouterChannel, trace::Usb, "Connection to USB-Simulation opened (%s)", SimulatorPipe);
    m_driver.m_hDisconnected.Reset();
    m_driver.NotifyState(true);
    StartRead();
    m_driver.StartDownloadIfNeeded(); // never does here: a simulated instrument is ready as it is
    m_driver.BeginNumbering();
    m_writeInFlight = false;
}

void SimulationCommandThread::StartRead()
{
    // A simulator that wrote and left lets the read fail at once, and Windows sets no event for that. Signalled by
    // hand it ends as every other failed read does.
    if (!m_read.Read(m_pipe.Get(), m_readBuffer->data(), CCyUSBDriver::TransferLength)) {
        m_read.SignalEvent();
    }
}

void SimulationCommandThread::OnReadDone()
{
    m_read.Settle();
    if (!m_pipe) {
        return;
    }
    DWORD length = 0;
    if (m_read.Finish(m_pipe.Get(), length)) {
        m_driver.CountTransferred(length);
        m_driver.ApppendToReplyProcessQueue(m_readBuffer->data(), length);
        StartRead();
        return;
    }
    const DWORD error = ::GetLastError();
    if (error != ERROR_SUCCESS) {
        Trace(trace::RouterChannel, trace::Usb, "Reply-receive failed(%d), reconnecting...",
              static_cast<int>(error));
        m_driver.DropConnection();
    }
}

void SimulationCommandThread::OnWriteDone()
{
    m_write.Settle();
    if (!m_writeInFlight || !m_pipe) {
        return;
    }
    DWORD length = 0;
    if (m_write.Finish(m_pipe.Get(), length)) {
        // The buffer size, not the count: readers of traces have always seen it so.
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::SimulationCommandProcessThread overlapped write %d bytes",
              static_cast<int>(CCyUSBDriver::TransferLength));
        m_driver.CountTransferred(length);
        m_writeInFlight = false;
    } else if (::GetLastError() != ERROR_SUCCESS) {
        Trace(trace::RouterChannel, trace::Usb, "Command-sent failed, reconnecting");
        m_driver.DropConnection();
    }
    ::Sleep(0);
}

void SimulationCommandThread::OnCommandQueued()
{
    if (m_driver.m_CommandQueue.GetCount() == 0) {
        m_driver.m_CommandQueue.Settle(); // set late: what it told of is written already
    } else if (m_writeInFlight || !m_pipe) {
        OnBusy();
    } else {
        WriteNext();
        m_driver.m_CommandQueue.Settle(); // not before the write, for which a client waits
    }
}

void SimulationCommandThread::OnBusy()
{
    SleepOneMillisecond();
    if (m_busyPasses++ % PassesPerTrace == 0) {
        Trace(
            trace::RouterChannel, trace::Usb,
            "CCyUSBDriver::SimulationCommandProcessThread() WARNING: Command queue not empty, but previous Write "
            "operation incomplete (TotalAborted=%d)",
            m_totalAborted);
    }
}

void SimulationCommandThread::WriteNext()
{
    m_lastWritten.reset(m_driver.m_CommandQueue.Take());
    if (!m_lastWritten || m_lastWritten->GetLength() == 0) {
        return;
    }
    m_driver.TraceOutgoing(*m_lastWritten);
    m_writeInFlight = true;
    if (!m_write.Write(m_pipe.Get(), m_lastWritten->GetData(), static_cast<DWORD>(m_lastWritten->GetLength()))) {
        m_write.SignalEvent(); // refused at once: reported like any other failed write
    }
    m_driver.ReportPacketCompleted(*m_lastWritten);
}

void SimulationCommandThread::OnQuietSecond()
{
    if (m_driver.m_CommandQueue.GetCount() == 0 && m_driver.IsReady()) {
        m_driver.SendIdlePacket();
    }
    if (m_idlePasses++ % PassesPerTrace != 0) {
        return;
    }
    if (m_writeInFlight) {
        Trace(trace::RouterChannel, trace::Usb,
              "CCyUSBDriver::SimulationCommandProcessThread() IDLE,  WARNING: Write operation incomplete "
              "(TotalAborted=%d)",
              m_totalAborted);
    }
    Trace(trace::RouterChannel, trace::Usb,
          "CCyUSBDriver::SimulationCommandProcessThread() IDLE, Number of pending write: %d",
          m_driver.m_CommandQueue.GetCount());
}

void SimulationCommandThread::ClosePipe()
{
    if (!m_pipe) {
        return;
    }
    m_read.Cancel();
    m_write.Cancel();
    ::DisconnectNamedPipe(m_pipe.Get());
    m_pipe.Reset();
    m_read.Settle();
    m_write.Settle();
}
