#include "transport/ReadThreads.h"

#include "trace/Trace.h"
#include "usb/BulkTransfer.h"
#include "win32/OverlappedOperation.h"
#include "win32/WaitSet.h"

#include <new>
#include <span>
#include <vector>

namespace {

enum class Slot : DWORD { Stop, StopRead, ReadDone, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

/// Reads from the bulk IN endpoint.
class EndpointReader
{
public:
    explicit EndpointReader(CCyUSBEndPoint& in) noexcept : m_in(in) {}

    HANDLE EventHandle() const noexcept { return m_transfer.EventHandle(); }
    void Begin()
    {
        m_transfer.ResetEvent();
        m_transfer.BeginRead(m_in, TransferLength);
    }
    bool HasEnded() const noexcept { return m_transfer.HasEnded(); }
    void ResetEvent() const noexcept { m_transfer.ResetEvent(); }
    bool Finish(std::uint32_t& length) { return m_transfer.Finish(length); }
    std::uint8_t* Data() noexcept { return m_transfer.Received().data(); }
    void Abort() noexcept
    {
        m_in.Abort();
        m_transfer.Abandon();
    }

private:
    CCyUSBEndPoint& m_in;
    usb::BulkTransfer m_transfer;
};

/// Reads from the simulator's pipe.
class PipeReader
{
public:
    /// Throws std::bad_alloc.
    explicit PipeReader(HANDLE pipe) : m_pipe(pipe), m_buffer(TransferLength + 1) {}

    HANDLE EventHandle() const noexcept { return m_operation.EventHandle(); }
    void Begin()
    {
        m_operation.ResetEvent();
        const bool accepted = m_operation.Read(m_pipe, m_buffer.data(), TransferLength);
        if (!accepted || m_operation.CompletedAtStart()) {
            m_operation.SignalEvent(); // for what is refused or done at once no event is promised
        }
    }
    bool HasEnded() const noexcept { return true; }
    void ResetEvent() const noexcept { m_operation.ResetEvent(); }
    bool Finish(std::uint32_t& length)
    {
        DWORD transferred = 0;
        const bool worked = m_operation.Finish(m_pipe, transferred);
        length = transferred;
        return worked;
    }
    std::uint8_t* Data() noexcept { return m_buffer.data(); }
    void Abort() noexcept { m_operation.Cancel(); }

private:
    HANDLE m_pipe;
    std::vector<std::uint8_t> m_buffer; // one byte longer than the longest read: see OnReadDone
    win32::OverlappedOperation m_operation;
};

/// Reads with `reader` until stopped, between two traces. Throws std::bad_alloc also when an event is missing:
/// every wait would fail, and the stop not be heard of. After a failed read none follows: the thread waits for its
/// stop.
template <class Reader>
class ReadLoop
{
public:
    ReadLoop(Connection& connection, Replies& replies, Reader& reader)
        : m_connection(connection),
          m_replies(replies),
          m_reader(reader),
          m_waits(connection.m_hStop.Get(), connection.m_hStopRead.Get(), reader.EventHandle())
    {
        if (!m_waits.HasAll()) {
            throw std::bad_alloc();
        }
    }

    void Run(const char* started, const char* ended)
    {
        Trace(trace::RouterChannel, trace::Usb, "%s", started);
        m_reader.Begin();
        for (bool running = true; running;) {
            switch (m_waits.Any(INFINITE)) {
            case Slot::Stop:
            case Slot::StopRead:
                m_reader.Abort();
                running = false;
                break;
            case Slot::ReadDone: OnReadDone(); break;
            case Slot::TimedOut:
            case Slot::Failed: break;
            }
            ::Sleep(0);
        }
        Trace(trace::RouterChannel, trace::Usb, "%s", ended);
    }

private:
    void OnReadDone()
    {
        m_reader.ResetEvent();
        if (!m_reader.HasEnded()) {
            return;
        }
        std::uint32_t length = 0;
        if (m_reader.Finish(length)) {
            m_hasRead = true;
            m_reader.Data()[length] = 0; // the buffer has space for it after the longest read
            m_connection.CountTransferred(length);
            m_replies.ApppendToReplyProcessQueue({m_reader.Data(), length});
            m_reader.Begin();
            ::Sleep(0);
            return;
        }
        const DWORD error = ::GetLastError();
        Trace(trace::RouterChannel, trace::Usb, "Reply-receive failed(%d), reconnecting...",
              static_cast<int>(error));
        if (error != ERROR_SUCCESS) {
            m_connection.m_bFirstReadFailed = !m_hasRead; // before the event that starts the connect procedure
            m_connection.Drop();
        }
    }

    Connection& m_connection;
    Replies& m_replies;
    Reader& m_reader;
    const win32::WaitSet<Slot, 3> m_waits;
    bool m_hasRead = false;
};

} // namespace

bool ReadThreads::StartReading(CCyUSBEndPoint* in)
{
    m_connection.m_hStopRead.Reset();
    if (m_hReadThread.IsHeld() ||
        m_hReadThread.Start([this, in] { USBReadWaitThread(m_connection, m_replies, in); }))
    {
        return true;
    }
    Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBReadWaitThread() cannot be started(%d)",
          static_cast<int>(::GetLastError()));
    return false;
}

void ReadThreads::Stop()
{
    for (win32::Thread* const thread : {&m_hReadThread, &m_hReadThread2}) {
        if (thread->IsHeld()) {
            m_connection.m_hStopRead.Set();
            thread->Join();
        }
    }
}

void ReadThreads::USBReadWaitThread(Connection& connection, Replies& replies, CCyUSBEndPoint* in)
{
    if (in == nullptr) {
        return;
    }
    try {
        EndpointReader reader(*in);
        ReadLoop(connection, replies, reader)
            .Run("CCyUSBDriver::USBReadWaitThread() started", "CCyUSBDriver::USBReadWaitThread() ended");
    } catch (const std::bad_alloc& fault) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBReadWaitThread() cannot run: %s", fault.what());
        connection.m_bFirstReadFailed = true;
        connection.Drop(); // a connection without reads is none; a new one tries again
    }
}

void ReadThreads::SimulationReadWaitThread(Connection& connection, Replies& replies, HANDLE pipe)
{
    if (pipe == INVALID_HANDLE_VALUE) {
        return;
    }
    PipeReader reader(pipe);
    ReadLoop(connection, replies, reader)
        .Run("CCyUSBDriver::SimulationReadWaitThread() started", "CCyUSBDriver::SimulationReadWaitThread() ended");
}
