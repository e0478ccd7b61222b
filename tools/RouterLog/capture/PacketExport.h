// The packets of a log as a capture file. Portable.
#pragma once

#include "tools/RouterLog/capture/PcapngWriter.h"
#include "tools/RouterLog/log/DumpText.h"
#include "tools/RouterLog/log/LineGrammar.h"
#include "tools/RouterLog/log/LineReader.h"
#include "tools/RouterLog/log/LogTime.h"

#include <cstdint>

namespace routerlog {

/// A record for each line that shows a packet, with the bytes as far as traced and the packet's whole length:
///   link type 147 (user 0)  what goes over USB: a frame to the instrument, or a block from it, which holds frames
///   link type 148 (user 1)  payloads from and to clients, after device type and port (4 bytes each, high byte
///   first) link type 150 (user 3)  texts: lines about the connection and the firmware, by which the dissector
///   knows where the
///                           numbering starts again
/// Times are the log's local times, taken for UTC. One thread.
class PacketExport
{
public:
    explicit PacketExport(WriteBytes write);

    void TakeFile(IByteSource& source);

    std::uint64_t Packets() const noexcept { return m_packets; }
    /// Packets of which the log shows only the first bytes.
    std::uint64_t Cut() const noexcept { return m_cut; }
    /// Packets whose dump holds what no dump has; their bytes end before that.
    std::uint64_t Damaged() const noexcept { return m_damaged; }

private:
    void TakeLine(std::string_view text);
    void AddDump(std::uint32_t interfaceIndex, std::string_view dump, std::int64_t length, bool fullLine,
                 CaptureDirection direction);

    const LineGrammar& m_grammar = LineGrammar::Instance();
    PcapngWriter m_writer;
    DumpedBytes m_dump;                // reused
    std::vector<std::uint8_t> m_bytes; // of the record in hand; reused
    LogTime m_time = 0;
    std::uint64_t m_packets = 0;
    std::uint64_t m_cut = 0;
    std::uint64_t m_damaged = 0;
};

} // namespace routerlog
