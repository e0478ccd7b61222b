// The threads that do nothing but read: a read is always pending, and what it brings goes to the reply queue.
#include "trace/Trace.h"
#include "transport/CCyUSBDriver.h"
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
    /// Throws std::bad_alloc also when there is no event for it: waits that fail would not hear of a stop.
    explicit EndpointReader(CCyUSBEndPoint& in) : m_in(in)
    {
        if (EventHandle() == nullptr) {
            throw std::bad_alloc();
        }
    }

    HANDLE EventHandle() const noexcept { return m_transfer.EventHandle(); }
    void Begin()
    {
        m_transfer.ResetEvent();
        m_transfer.BeginRead(m_in, CCyUSBDriver::TransferLength);
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
    /// Throws std::bad_alloc also when there is no event for it.
    explicit PipeReader(HANDLE pipe) : m_pipe(pipe), m_buffer(CCyUSBDriver::TransferLength + 1)
    {
        if (EventHandle() == nullptr) {
            throw std::bad_alloc();
        }
    }

    HANDLE EventHandle() const noexcept { return m_operation.EventHandle(); }
    void Begin()
    {
        m_operation.ResetEvent();
        if (!m_operation.Read(m_pipe, m_buffer.data(), CCyUSBDriver::TransferLength)) {
            m_operation.SignalEvent(); // refused at once, which no event tells
        } else if (m_operation.CompletedAtStart()) {
            m_operation.SignalEvent(); // done at once, for which no event is promised
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
    std::vector<std::uint8_t> m_buffer; // one byte longer than the longest read: see OnRead
    win32::OverlappedOperation m_operation;
};

/// `onData` takes each completed read, `onFailure` a failure that Windows has an error for. No new read is started
/// after a failure: the thread then waits until it is stopped.
template <class Reader, class OnData, class OnFailure>
void ReadUntilStopped(Reader& reader, HANDLE stop, HANDLE stopRead, OnData onData, OnFailure onFailure)
{
    const win32::WaitSet<Slot, 3> waits(stop, stopRead, reader.EventHandle());
    reader.Begin();
    for (;;) {
        switch (waits.Any(INFINITE)) {
        case Slot::Stop:
        case Slot::StopRead: reader.Abort(); return;
        case Slot::ReadDone: {
            reader.ResetEvent();
            std::uint32_t length = 0;
            if (!reader.HasEnded()) {
                break;
            }
            if (reader.Finish(length)) {
                reader.Data()[length] = 0; // room for it behind the longest read is part of the buffer
                onData(reader.Data(), length);
                reader.Begin();
                ::Sleep(0);
            } else {
                onFailure(::GetLastError());
            }
            break;
        }
        case Slot::TimedOut:
        case Slot::Failed: break;
        }
        ::Sleep(0);
    }
}

} // namespace

void CCyUSBDriver::USBReadWaitThread(CCyUSBEndPoint* in)
{
    if (in == nullptr) {
        return;
    }
    try {
        EndpointReader reader(*in);
        RunReader(reader, "CCyUSBDriver::USBReadWaitThread() started", "CCyUSBDriver::USBReadWaitThread() ended");
    } catch (const std::bad_alloc& fault) {
        Trace(trace::RouterChannel, trace::Usb, "CCyUSBDriver::USBReadWaitThread() cannot run: %s", fault.what());
        m_bFirstReadFailed = true;
        DropConnection(); // a connection that nobody reads from is none; a new one tries again
    }
}

// The simulation's command thread reads the pipe itself; this one is there for a transport that leaves it the reading.
void CCyUSBDriver::SimulationReadWaitThread(HANDLE pipe)
{
    if (pipe == INVALID_HANDLE_VALUE) {
        return;
    }
    PipeReader reader(pipe);
    RunReader(reader, "CCyUSBDriver::SimulationReadWaitThread() started",
              "CCyUSBDriver::SimulationReadWaitThread() ended");
}

template <class Reader>
void CCyUSBDriver::RunReader(Reader& reader, const char* started, const char* ended)
{
    Trace(trace::RouterChannel, trace::Usb, "%s", started);
    bool hasRead = false;
    ReadUntilStopped(
        reader, m_hStop.Get(), m_hStopRead.Get(),
        [this, &hasRead](const std::uint8_t* data, std::uint32_t length) {
            hasRead = true;
            CountTransferred(length);
            ApppendToReplyProcessQueue(data, length);
        },
        [this, &hasRead](DWORD error) {
            Trace(trace::RouterChannel, trace::Usb, "Reply-receive failed(%d), reconnecting...",
                  static_cast<int>(error));
            if (error != ERROR_SUCCESS) {
                m_bFirstReadFailed = !hasRead; // before the event that starts the connect procedure
                DropConnection();
            }
        });
    Trace(trace::RouterChannel, trace::Usb, "%s", ended);
}
