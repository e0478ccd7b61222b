#include "bench/WireRows.h"

#include "ports/packet/WireFormat.h"
#include "trace/PacketText.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t LongestRead = 65535;
constexpr std::size_t Page = 4096;

Bytes Pattern(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    }
    return bytes;
}

/// As many packets of that payload as fit into one read. Each has number 0, after which the next one's number is
/// not checked: the report of a gap is no part of parsing.
Bytes BlockOf(std::size_t payloadLength)
{
    const Bytes payload(payloadLength, 'x');
    const wire::Header header = wire::BuildHeader(0, wire::PortTraffic, 3, 1, payload.size());
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    Bytes block;
    while (block.size() + payloadLength + wire::FrameOverhead <= LongestRead) {
        block.insert(block.end(), header.begin(), header.end());
        block.insert(block.end(), payload.begin(), payload.end());
        block.insert(block.end(), trailer.begin(), trailer.end());
    }
    return block;
}

double CopyTime(std::span<const std::uint8_t> from, std::size_t times)
{
    Bytes to(from.size());
    return NanosecondsEach(times, [&](std::size_t) {
        Keep(from.data());
        std::memcpy(to.data(), from.data(), from.size());
        Keep(to.data());
    });
}

void AddDumpRow(Table& table, const RunSize& run)
{
    const Bytes bytes = Pattern(100);
    const std::size_t times = run.Times(200'000);
    const auto [copy, dump] = InTurn(
        run.Rounds(), [&] { return CopyTime(bytes, times); },
        [&] {
            return NanosecondsEach(times, [&](std::size_t) {
                std::string text;
                AppendPacketText(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 100, false, text);
                Keep(text.data());
            });
        });
    table.Add(
        {"dump of 100 bytes", "memcpy of the same bytes", {dump, "ns"}, Quantity{copy, "ns"}, Bound::None, 0, ""});
}

void AddFramingRow(Table& table, const RunSize& run, std::size_t length)
{
    const Bytes payload = Pattern(length);
    const std::size_t times = run.Times(100'000);
    const auto [copy, framing] = InTurn(
        run.Rounds(), [&] { return CopyTime(payload, times); },
        [&] {
            return NanosecondsEach(times, [&](std::size_t i) {
                const wire::Trailer trailer = wire::BuildTrailer(payload);
                const wire::Header header = wire::BuildHeader(static_cast<std::uint8_t>(i & 0xFF),
                                                              wire::PortTraffic, 3, 1, payload.size());
                Bytes frame;
                frame.reserve(payload.size() + wire::FrameOverhead);
                frame.insert(frame.end(), header.begin(), header.end());
                frame.insert(frame.end(), payload.begin(), payload.end());
                frame.insert(frame.end(), trailer.begin(), trailer.end());
                Keep(frame.data());
            });
        });
    table.Add({"framing of " + std::to_string(length) + " bytes, with its allocation",
               "memcpy of the same bytes",
               {framing, "ns"},
               Quantity{copy, "ns"},
               Bound::None,
               0,
               ""});
}

/// Counts, and times the first and the last tenth of a block.
class TenthsWatch final : public PacketWatch
{
public:
    explicit TenthsWatch(std::size_t packets) : m_packets(packets) {}

    void OnPacket(std::span<const std::uint8_t> payload) override
    {
        Keep(payload.data());
        const std::size_t tenth = m_packets / 10;
        if (m_seen == 0 || m_seen == tenth || m_seen + tenth + 1 == m_packets || m_seen + 1 == m_packets) {
            m_times[m_next++ % m_times.size()] = std::chrono::steady_clock::now();
        }
        ++m_seen;
    }
    void Begin() noexcept
    {
        m_seen = 0;
        m_next = 0;
    }
    double First() const { return Between(0); }
    double Last() const { return Between(2); }
    std::size_t Seen() const noexcept { return m_seen; }

private:
    double Between(std::size_t at) const
    {
        return std::chrono::duration<double, std::nano>(m_times[at + 1] - m_times[at]).count();
    }

    const std::size_t m_packets;
    std::size_t m_seen = 0;
    std::size_t m_next = 0;
    std::array<std::chrono::steady_clock::time_point, 4> m_times{};
};

class CountingWatch final : public PacketWatch
{
public:
    void OnPacket(std::span<const std::uint8_t> payload) override
    {
        Keep(payload.data());
        ++m_seen;
    }
    std::size_t Seen() const noexcept { return m_seen; }

private:
    std::size_t m_seen = 0;
};

/// Of the middle half: finer than the clock's ticks, as a median is not, and free of what a busy machine adds.
double MeanOfMiddle(std::vector<double> values)
{
    std::ranges::sort(values);
    const auto quarter = static_cast<std::ptrdiff_t>(values.size() / 4);
    return std::accumulate(values.begin() + quarter, values.end() - quarter, 0.0) /
           static_cast<double>(values.size() - 2 * static_cast<std::size_t>(quarter));
}

void AddTenthsRow(Table& table, const RunSize& run, BlockParser& parser, const std::string& name,
                  std::size_t frameLength)
{
    const Bytes block = BlockOf(frameLength - wire::FrameOverhead);
    const std::size_t packets = block.size() / frameLength;
    TenthsWatch watch(packets);
    std::vector<double> first;
    std::vector<double> last;
    for (std::size_t i = 0; i < run.Times(1000); ++i) {
        watch.Begin();
        parser.Parse(block, watch);
        if (watch.Seen() != packets) {
            throw std::runtime_error("packets are missing");
        }
        first.push_back(watch.First());
        last.push_back(watch.Last());
    }
    const std::size_t tenth = packets / 10;
    table.Add({name + ": " + std::to_string(frameLength) + "-byte packets, last tenth of a block",
               "first tenth of the same block",
               {MeanOfMiddle(last) / static_cast<double>(tenth), "ns/packet"},
               Quantity{MeanOfMiddle(first) / static_cast<double>(tenth), "ns/packet"},
               Bound::AtMost,
               1.25,
               ""});
}

void AddSpeedRow(Table& table, const RunSize& run, BlockParser& parser, const std::string& name,
                 std::size_t frameLength, Bound bound)
{
    const Bytes block = BlockOf(frameLength - wire::FrameOverhead);
    // In each round somewhere else within a page: processors are slow to copy between places that differ by little
    // more than whole pages, and where the parser's buffer lies is chance.
    Bytes room(block.size() + Page);
    std::size_t round = 0;
    const auto place = [&](std::size_t shift) {
        std::copy(block.begin(), block.end(), room.begin() + static_cast<std::ptrdiff_t>(shift));
        return std::span<const std::uint8_t>(room).subspan(shift, block.size());
    };
    CountingWatch watch;
    const std::size_t times = run.Times(1000);
    const auto [copy, parsing] = InTurn(
        run.Rounds(), [&] { return CopyTime(place(round * Page / 8 % Page), times); },
        [&] {
            const auto placed = place(round++ * Page / 8 % Page);
            return NanosecondsEach(times, [&](std::size_t) { parser.Parse(placed, watch); });
        });
    if (watch.Seen() != static_cast<std::size_t>(run.Rounds()) * times * (block.size() / frameLength)) {
        throw std::runtime_error("packets are missing");
    }
    const auto speed = [&block](double nanoseconds) {
        return Quantity{static_cast<double>(block.size()) / nanoseconds, "GB/s"};
    };
    table.Add({name + ": " + std::to_string(frameLength) + "-byte packets, a full block",
               "memcpy of the same bytes", speed(parsing), speed(copy), bound, 0.25, ""});
}

} // namespace

void AddDumpAndFramingRows(Table& table, const RunSize& run)
{
    AddDumpRow(table, run);
    AddFramingRow(table, run, 64);
    AddFramingRow(table, run, 1024);
}

void AddParsingRows(Table& table, const RunSize& run, BlockParser& parser, const std::string& name)
{
    AddTenthsRow(table, run, parser, name, 15);
    AddTenthsRow(table, run, parser, name, 512);
    AddSpeedRow(table, run, parser, name, 15, Bound::None);
    AddSpeedRow(table, run, parser, name, 512, Bound::AtLeast);
}

} // namespace bench
