// The path of a packet with nothing on it: the threads, events and overlapped operations of the router's path as
// one would write them down, every event waited for and reset, and nothing of the product but its wrappers of
// Windows' calls. client -> port thread -> command thread -> instrument -> command thread
// -> reply thread -> port thread -> client.
#include "bench/Roles.h"

#include "tests/support/PipeClient.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"
#include "win32/WaitSet.h"

#include <functional>
#include <utility>

namespace bench {

namespace {

using Bytes = std::vector<std::uint8_t>;
using win32::Event;

/// Holds at most one message: the client waits for each answer.
class Mailbox
{
public:
    void Put(Bytes bytes)
    {
        {
            const win32::ExclusiveScope scope(m_lock);
            m_bytes = std::move(bytes);
        }
        m_filled.Set();
    }
    Bytes Take()
    {
        const win32::ExclusiveScope scope(m_lock);
        m_filled.Reset();
        return std::exchange(m_bytes, {});
    }
    HANDLE Filled() const noexcept { return m_filled.Get(); }

private:
    win32::SharedLock m_lock;
    Bytes m_bytes;
    Event m_filled{Event::Kind::ManualReset};
};

/// The loop of a thread that reads from a pipe into one mailbox and writes to it what is in another.
class PipeLoop
{
public:
    PipeLoop(HANDLE pipe, Mailbox& toWrite, Mailbox& received, HANDLE readEnable)
        : m_pipe(pipe),
          m_toWrite(toWrite),
          m_received(received),
          m_waits(m_write.EventHandle(), readEnable, m_read.EventHandle(), toWrite.Filled())
    {
    }

    std::function<void()> afterRead = [] {};
    std::function<void()> afterWrite = [] {}; // its start

    void StartReading() { m_read.Read(m_pipe, m_buffer.data(), static_cast<DWORD>(m_buffer.size())); }

    /// Until the other end of the pipe is gone.
    void Run()
    {
        for (;;) {
            DWORD length = 0;
            switch (m_waits.Any(INFINITE)) {
            case Slot::Written:
                m_write.ResetEvent();
                m_write.Finish(m_pipe, length);
                break;
            case Slot::ReadEnabled: StartReading(); break;
            case Slot::ReadDone:
                m_read.ResetEvent();
                if (!m_read.Finish(m_pipe, length)) {
                    return;
                }
                m_received.Put({m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(length)});
                afterRead();
                break;
            case Slot::Queued:
                m_written = m_toWrite.Take();
                m_write.Write(m_pipe, m_written.data(), static_cast<DWORD>(m_written.size()));
                afterWrite();
                break;
            default: return;
            }
        }
    }

private:
    enum class Slot : DWORD {
        Written,
        ReadEnabled,
        ReadDone,
        Queued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };

    const HANDLE m_pipe;
    Mailbox& m_toWrite;
    Mailbox& m_received;
    Bytes m_buffer = Bytes(65535);
    Bytes m_written;
    win32::OverlappedOperation m_read;
    win32::OverlappedOperation m_write;
    const win32::WaitSet<Slot, 4> m_waits;
};

} // namespace

/// Serves one client until it leaves; then the process has done its part.
void PlayBarePipeline(const std::string& pipe, const std::string& instrumentPipe,
                      const console::ReadySignal& ready)
{
    support::PipeClient instrument;
    instrument.Open(instrumentPipe);
    const win32::FileHandle port = MakePipe(pipe, PIPE_TYPE_MESSAGE);
    Mailbox requests;
    Mailbox blocks;
    Mailbox replies;
    const Event readEnable(Event::Kind::AutoReset);
    const Event never(Event::Kind::AutoReset);
    PipeLoop portLoop(port.Get(), replies, requests, readEnable.Get());
    PipeLoop commandLoop(instrument.Handle(), requests, blocks, never.Get());
    commandLoop.afterRead = [&] { commandLoop.StartReading(); };
    commandLoop.afterWrite = [&] { readEnable.Set(); };
    win32::Thread command;
    command.Start([&] {
        commandLoop.StartReading();
        commandLoop.Run();
    });
    command.SetPriority(THREAD_PRIORITY_ABOVE_NORMAL);
    win32::Thread reply;
    reply.Start([&] {
        const HANDLE filled = blocks.Filled();
        while (::WaitForMultipleObjects(1, &filled, FALSE, INFINITE) == WAIT_OBJECT_0) {
            replies.Put(blocks.Take());
        }
    });
    win32::OverlappedOperation connect;
    connect.ConnectPipe(port.Get());
    ready.Set();
    ::WaitForSingleObject(connect.EventHandle(), INFINITE);
    readEnable.Set();
    portLoop.Run();
    ::ExitProcess(0); // the other threads wait without end
}

} // namespace bench
