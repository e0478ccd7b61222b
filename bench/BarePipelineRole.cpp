// The path of a packet with nothing on it: the threads, events and overlapped operations of the router's path as
// one would write them down, every event waited for and reset, and nothing of the product but its wrappers of
// Windows' calls. client -> port thread -> command thread -> instrument -> command thread
// -> reply thread -> port thread -> client.
#include "bench/Roles.h"

#include "console/Console.h"
#include "tests/support/UniqueName.h"
#include "tests/support/WaitUntil.h"
#include "win32/CriticalSection.h"
#include "win32/Event.h"
#include "win32/OverlappedOperation.h"
#include "win32/Thread.h"
#include "win32/WaitSet.h"

#include <utility>
#include <vector>

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

class BarePipeline
{
public:
    explicit BarePipeline(const RoleCall& call) : m_call(call), m_ready(console::Utf8(call.ready)) {}

    int Run()
    {
        support::WaitUntil([this] {
            m_simulator.Reset(::CreateFileW(support::PipePath(m_call.other).c_str(), GENERIC_READ | GENERIC_WRITE,
                                            0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
            return static_cast<bool>(m_simulator);
        });
        m_port.Reset(
            ::CreateNamedPipeW(support::PipePath(m_call.pipe).c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                               PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 65536, 65536, 0, nullptr));
        if (!m_simulator || !m_port) {
            return 1;
        }
        win32::Thread command;
        command.Start([this] { CommandThread(); });
        command.SetPriority(THREAD_PRIORITY_ABOVE_NORMAL);
        win32::Thread reply;
        reply.Start([this] { ReplyThread(); });
        PortThread();
        return 1;
    }

private:
    enum class PortSlot : DWORD {
        Connected,
        Written,
        ReadEnabled,
        ReadDone,
        Queued,
        TimedOut = WAIT_TIMEOUT,
        Failed = WAIT_FAILED
    };
    enum class CommandSlot : DWORD { ReadDone, Written, Queued, TimedOut = WAIT_TIMEOUT, Failed = WAIT_FAILED };

    /// Serves one client until it leaves; then the process has done its part.
    void PortThread()
    {
        Bytes buffer(65536);
        Bytes written;
        win32::OverlappedOperation connect;
        win32::OverlappedOperation read;
        win32::OverlappedOperation write;
        const win32::WaitSet<PortSlot, 5> waits(connect.EventHandle(), write.EventHandle(), m_readEnable.Get(),
                                                read.EventHandle(), m_replies.Filled());
        connect.ConnectPipe(m_port.Get());
        m_ready.Set();
        for (;;) {
            DWORD length = 0;
            switch (waits.Any(INFINITE)) {
            case PortSlot::Connected:
                connect.ResetEvent();
                connect.Finish(m_port.Get(), length);
                m_readEnable.Set();
                break;
            case PortSlot::Written:
                write.ResetEvent();
                write.Finish(m_port.Get(), length);
                break;
            case PortSlot::ReadEnabled: read.Read(m_port.Get(), buffer.data(), 65536); break;
            case PortSlot::ReadDone:
                read.ResetEvent();
                if (!read.Finish(m_port.Get(), length)) {
                    ::ExitProcess(0);
                }
                m_requests.Put(Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)));
                break;
            case PortSlot::Queued:
                written = m_replies.Take();
                write.Write(m_port.Get(), written.data(), static_cast<DWORD>(written.size()));
                break;
            default: return;
            }
        }
    }

    void CommandThread()
    {
        Bytes buffer(65536);
        Bytes written;
        win32::OverlappedOperation read;
        win32::OverlappedOperation write;
        const win32::WaitSet<CommandSlot, 3> waits(read.EventHandle(), write.EventHandle(), m_requests.Filled());
        read.Read(m_simulator.Get(), buffer.data(), 65535);
        for (;;) {
            DWORD length = 0;
            switch (waits.Any(INFINITE)) {
            case CommandSlot::ReadDone:
                read.ResetEvent();
                if (!read.Finish(m_simulator.Get(), length)) {
                    return;
                }
                m_blocks.Put(Bytes(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)));
                read.Read(m_simulator.Get(), buffer.data(), 65535);
                break;
            case CommandSlot::Written:
                write.ResetEvent();
                write.Finish(m_simulator.Get(), length);
                break;
            case CommandSlot::Queued:
                written = m_requests.Take();
                write.Write(m_simulator.Get(), written.data(), static_cast<DWORD>(written.size()));
                m_readEnable.Set();
                break;
            default: return;
            }
        }
    }

    void ReplyThread()
    {
        const HANDLE blocks = m_blocks.Filled();
        while (::WaitForMultipleObjects(1, &blocks, FALSE, INFINITE) == WAIT_OBJECT_0) {
            m_replies.Put(m_blocks.Take());
        }
    }

    const RoleCall& m_call;
    const console::ReadySignal m_ready;
    win32::FileHandle m_simulator; // command thread
    win32::FileHandle m_port;      // port thread
    Mailbox m_requests;
    Mailbox m_blocks;
    Mailbox m_replies;
    Event m_readEnable{Event::Kind::AutoReset};
};

} // namespace

int PlayBarePipeline(const RoleCall& call)
{
    return BarePipeline(call).Run();
}

} // namespace bench
