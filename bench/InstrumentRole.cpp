// The instruments of the benchmark: at a pipe, with the router in between or without, and with the simulated
// instrument's driver. They do less than the scripted one, so that a figure is about the path and not about its
// end.
#include "bench/Roles.h"
#include "bench/Rows.h"
#include "ports/packet/FrameReader.h"
#include "tests/instrument/InstrumentControl.h"
#include "win32/OverlappedOperation.h"

#include <algorithm>
#include <utility>

namespace bench {

namespace {

class PipeInstrument
{
public:
    PipeInstrument(win32::FileHandle pipe, bool framed, InstrumentTask task)
        : m_pipe(std::move(pipe)), m_framed(framed), m_task(task), m_buffer(65536)
    {
    }

    /// Serves one client after the other.
    void Run()
    {
        while (m_operation.ConnectPipe(m_pipe.Get()) && Complete()) {
            while (Read() && Treat(std::span(m_buffer).first(m_length))) {
            }
            m_operation.Cancel();
            ::DisconnectNamedPipe(m_pipe.Get());
            m_frames = {};
        }
    }

private:
    bool Read()
    {
        return m_operation.Read(m_pipe.Get(), m_buffer.data(), static_cast<DWORD>(m_buffer.size())) && Complete();
    }
    bool Write(std::span<const std::uint8_t> bytes)
    {
        return m_operation.Write(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size())) && Complete();
    }
    bool Complete()
    {
        while (!m_operation.Finish(m_pipe.Get(), m_length)) {
            if (::GetLastError() != ERROR_IO_INCOMPLETE) {
                return false;
            }
            ::WaitForSingleObject(m_operation.EventHandle(), INFINITE);
        }
        return true;
    }

    bool Treat(std::span<const std::uint8_t> bytes)
    {
        if (m_task.mode == Mode::Echo) {
            return Write(bytes);
        }
        if (!m_framed) {
            return TreatPayload(bytes);
        }
        bool written = true;
        m_frames.Append(bytes);
        m_frames.TakeFrames([&](const wire::Frame& frame) {
            // The router's own packets, which it sends when nothing else goes on, have no payload.
            written = (frame.payload.empty() || TreatPayload(frame.payload)) && written;
        });
        return written;
    }

    bool TreatPayload(std::span<const std::uint8_t> payload)
    {
        return m_task.mode == Mode::Flood ? Flood() : Count(payload.size());
    }

    bool Count(std::size_t payload)
    {
        ++m_packets;
        m_counted += payload;
        if (m_counted < m_task.bytes) {
            return true;
        }
        m_counted -= m_task.bytes;
        const std::string answer = std::to_string(std::exchange(m_packets, 0));
        const Bytes bytes(answer.begin(), answer.end());
        return Write(m_framed ? FrameOf(0, bytes) : bytes);
    }

    /// A write for each payload, or framed, for as many as a block holds.
    bool Flood()
    {
        const std::size_t each = FloodPayload + (m_framed ? wire::FrameOverhead : 0);
        const Bytes block = m_framed ? BlockOf(each) : Bytes(each, 'f');
        bool written = true;
        for (std::size_t left = m_task.bytes / FloodPayload; left != 0 && written;) {
            const std::size_t count = std::min(left, block.size() / each);
            written = Write(std::span(block).first(count * each));
            left -= count;
        }
        return written;
    }

    const win32::FileHandle m_pipe;
    const bool m_framed;
    const InstrumentTask m_task;
    Bytes m_buffer;
    win32::OverlappedOperation m_operation; // one at a time
    DWORD m_length = 0;                     // of the last
    FrameReader m_frames;
    std::uint64_t m_counted = 0; // bytes
    std::uint64_t m_packets = 0;
};

} // namespace

void PlayInstrument(const std::string& pipe, bool framed, InstrumentTask task, const console::ReadySignal& ready)
{
    PipeInstrument instrument(MakePipe(pipe, framed ? PIPE_TYPE_BYTE : PIPE_TYPE_MESSAGE), framed, task);
    ready.Set();
    instrument.Run();
}

void PlayBusInstrument(const console::ReadySignal& ready)
{
    instrumentbus::InstrumentControl bus;
    ready.Set();
    for (;;) {
        if (const auto written = bus.TakeWritten(0, 0x02)) {
            bus.Feed(0, 0x86, written->bytes);
        }
    }
}

} // namespace bench
