// The instruments of the benchmark: at a pipe, with the router in between or without, and with the
// simulated instrument's driver.
#include "bench/PipeEnd.h"
#include "bench/Roles.h"
#include "console/Console.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"
#include "tests/instrument/InstrumentControl.h"

namespace bench {

namespace {

constexpr std::size_t FloodPayload = 512;
constexpr std::size_t LongestBlock = 65535;

class PipeInstrument
{
public:
    explicit PipeInstrument(const RoleCall& call) : m_framed(call.role == L"framed"), m_shared(call.other) {}

    /// Serves one client after the other.
    int Run(const RoleCall& call)
    {
        const console::ReadySignal ready(console::Utf8(call.ready));
        if (!m_pipe.Make(call.pipe, m_framed ? PIPE_TYPE_BYTE : PIPE_TYPE_MESSAGE)) {
            return 1;
        }
        ready.Set();
        while (m_pipe.AwaitClient()) {
            auto bytes = m_pipe.Read();
            while (!bytes.empty() && Treat(bytes)) {
                bytes = m_pipe.Read();
            }
            m_pipe.DropClient();
            m_received.Clear();
        }
        return 1;
    }

private:
    bool Treat(std::span<const std::uint8_t> bytes)
    {
        switch (m_shared.Record().mode.load()) {
        case Mode::Echo: return m_pipe.Write(bytes);
        case Mode::Sink: Count(PayloadIn(bytes)); return true;
        case Mode::Flood: return PayloadIn(bytes) == 0 || Flood();
        }
        return false;
    }

    /// Payload bytes; the router's own packets, which it sends when nothing else goes on, have none.
    std::size_t PayloadIn(std::span<const std::uint8_t> bytes)
    {
        InstrumentRecord& record = m_shared.Record();
        if (!m_framed) {
            ++record.packets;
            return bytes.size();
        }
        std::size_t payload = 0;
        m_received.Append(bytes);
        while (const auto frame = wire::ParseFrame(m_received.Bytes())) {
            payload += frame->payload.size();
            record.packets += frame->payload.empty() ? 0 : 1;
            m_received.Consume(frame->Length());
        }
        return payload;
    }

    void Count(std::size_t payload)
    {
        m_counted += payload;
        const std::uint64_t goal = m_shared.Record().goal;
        if (goal != 0 && m_counted >= goal) {
            m_counted -= goal;
            ::SetEvent(m_shared.Reached());
        }
    }

    /// A write for each payload, or framed, for as many as a block holds.
    bool Flood()
    {
        const std::vector<std::uint8_t> payload(FloodPayload, 'f');
        const std::size_t most = m_framed ? LongestBlock / (FloodPayload + wire::FrameOverhead) : 1;
        bool written = true;
        for (std::uint64_t left = m_shared.Record().goal / FloodPayload; left != 0 && written;) {
            std::vector<std::uint8_t> block;
            for (std::size_t room = most; room != 0 && left != 0; --room, --left) {
                Append(block, payload);
            }
            written = m_pipe.Write(block);
        }
        return written;
    }

    void Append(std::vector<std::uint8_t>& block, std::span<const std::uint8_t> payload)
    {
        if (!m_framed) {
            block.insert(block.end(), payload.begin(), payload.end());
            return;
        }
        const wire::Header header = wire::BuildHeader(m_number++, wire::PortTraffic, 3, 1, payload.size());
        const wire::Trailer trailer = wire::BuildTrailer(payload);
        block.insert(block.end(), header.begin(), header.end());
        block.insert(block.end(), payload.begin(), payload.end());
        block.insert(block.end(), trailer.begin(), trailer.end());
    }

    const bool m_framed;
    const SharedInstrument m_shared;
    PipeEnd m_pipe;
    ReceiveBuffer m_received;
    std::uint64_t m_counted = 0;
    std::uint8_t m_number = 1;
};

} // namespace

int PlayInstrument(const RoleCall& call)
{
    return PipeInstrument(call).Run(call);
}

int PlayBusInstrument(const RoleCall& call)
{
    instrumentbus::InstrumentControl bus;
    const console::ReadySignal ready(console::Utf8(call.ready));
    ready.Set();
    for (;;) {
        if (const auto written = bus.TakeWritten(0, 0x02)) {
            bus.Feed(0, 0x86, written->bytes);
        }
    }
}

} // namespace bench
