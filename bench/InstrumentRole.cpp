// The instrument behind a pipe, with the router in front of it or without.
#include "bench/PipeEnd.h"
#include "bench/Roles.h"
#include "bench/SharedRecord.h"
#include "console/Console.h"
#include "ports/packet/ReceiveBuffer.h"
#include "ports/packet/WireFormat.h"

#include <algorithm>

namespace bench {

namespace {

constexpr std::size_t FloodPayload = 512;
constexpr std::size_t LongestBlock = 65535;

class PipeInstrumentRole
{
public:
    explicit PipeInstrumentRole(const RoleNames& names)
        : m_names(names), m_ready(console::Utf8(names.ready)), m_shared(names.record)
    {
    }

    int Run()
    {
        if (!m_pipe.Make(m_names.pipe, m_names.framed ? PIPE_TYPE_BYTE : PIPE_TYPE_MESSAGE)) {
            return 1;
        }
        m_ready.Set();
        while (m_pipe.AwaitClient()) {
            Serve();
            m_pipe.DropClient();
            m_received.Clear();
        }
        return 1;
    }

private:
    void Serve()
    {
        for (auto bytes = m_pipe.Read(); !bytes.empty(); bytes = m_pipe.Read()) {
            if (!Treat(bytes)) {
                return;
            }
        }
    }

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
        if (!m_names.framed) {
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

    bool Flood()
    {
        const std::vector<std::uint8_t> payload(FloodPayload, 'f');
        std::uint64_t packets = m_shared.Record().goal / FloodPayload;
        if (!m_names.framed) {
            while (packets-- != 0) {
                if (!m_pipe.Write(payload)) {
                    return false;
                }
            }
            return true;
        }
        const wire::Trailer trailer = wire::BuildTrailer(payload);
        while (packets != 0) {
            std::vector<std::uint8_t> block;
            for (; packets != 0 && block.size() + FloodPayload + wire::FrameOverhead <= LongestBlock; --packets) {
                const wire::Header header = wire::BuildHeader(m_number++, wire::PortTraffic, 3, 1, payload.size());
                block.insert(block.end(), header.begin(), header.end());
                block.insert(block.end(), payload.begin(), payload.end());
                block.insert(block.end(), trailer.begin(), trailer.end());
            }
            if (!m_pipe.Write(block)) {
                return false;
            }
        }
        return true;
    }

    const RoleNames& m_names;
    const console::ReadySignal m_ready;
    const SharedInstrument m_shared;
    PipeEnd m_pipe;
    ReceiveBuffer m_received;
    std::uint64_t m_counted = 0;
    std::uint8_t m_number = 1;
};

} // namespace

int PlayInstrument(const RoleNames& names)
{
    return PipeInstrumentRole(names).Run();
}

} // namespace bench
