// Rows about bytes alone: packet text, framing, parsing.
#include "bench/Rows.h"

#include "ports/packet/WireFormat.h"
#include "trace/PacketText.h"

#include <cstring>
#include <numeric>

namespace bench {

namespace {

constexpr std::size_t LongestBlock = 65535;
constexpr std::size_t Page = 4096;

Bytes Pattern(std::size_t count)
{
    Bytes bytes(count);
    std::ranges::generate(
        bytes, [value = std::uint8_t{0}]() mutable { return value = static_cast<std::uint8_t>(value + 7); });
    return bytes;
}

double CopyTime(Span from, std::size_t times)
{
    Bytes to(from.size());
    return NanosecondsEach(times, [&](std::size_t) {
        Keep(from.data());
        std::memcpy(to.data(), from.data(), from.size());
        Keep(to.data());
    });
}

/// A row about what `function` takes of the time that a copy of `bytes` takes.
template <class Function>
void AddAgainstCopy(Table& table, const RunSize& run, const char* measured, const Bytes& bytes,
                    std::size_t wholeTimes, Function&& function)
{
    const std::size_t times = run.Times(wholeTimes);
    const auto [copy, taken] = InTurn(
        run.Rounds(), [&] { return CopyTime(bytes, times); }, [&] { return NanosecondsEach(times, function); });
    table.Add({measured, "memcpy of the same bytes", taken, copy, "ns", Told, ""});
}

/// Of the middle half: finer than the clock's ticks, as a median is not, and free of what a busy machine adds.
double MeanOfMiddle(std::vector<double> values)
{
    std::ranges::sort(values);
    const auto quarter = static_cast<std::ptrdiff_t>(values.size() / 4);
    return std::accumulate(values.begin() + quarter, values.end() - quarter, 0.0) /
           static_cast<double>(values.size() - 2 * static_cast<std::size_t>(quarter));
}

/// The time per packet in the last tenth of a block against the first.
void AddTenthsRow(Table& table, const RunSize& run, const BlockParser& parse, const std::string& name,
                  std::size_t frameLength)
{
    const Bytes block = BlockOf(frameLength);
    const std::size_t packets = block.size() / frameLength;
    const std::size_t tenth = packets / 10;
    std::size_t seen = 0;
    std::array<std::chrono::steady_clock::time_point, 4> times{}; // of the ends of the two tenths
    const PacketWatch watch = [&, next = std::size_t{0}](Span payload) mutable {
        Keep(payload.data());
        if (seen == 0 || seen == tenth || seen + tenth + 1 == packets || seen + 1 == packets) {
            times[next++ % times.size()] = std::chrono::steady_clock::now();
        }
        ++seen;
    };
    const auto between = [&](std::size_t at) {
        return std::chrono::duration<double, std::nano>(times[at + 1] - times[at]).count() /
               static_cast<double>(tenth);
    };
    std::vector<double> first;
    std::vector<double> last;
    for (std::size_t i = 0; i < run.Times(1000); ++i) {
        seen = 0;
        parse(block, watch);
        Demand(seen == packets, "packets are missing");
        first.push_back(between(0));
        last.push_back(between(2));
    }
    table.Add({name + ": " + std::to_string(frameLength) + "-byte packets, last tenth of a block",
               "first tenth of the same block", MeanOfMiddle(last), MeanOfMiddle(first), "ns/packet", AtMost(1.25),
               ""});
}

void AddSpeedRow(Table& table, const RunSize& run, const BlockParser& parse, const std::string& name,
                 std::size_t frameLength, Target target)
{
    const Bytes block = BlockOf(frameLength);
    // In each round somewhere else within a page: processors are slow to copy between places that differ by little
    // more than whole pages, and where the parser's buffer lies is chance.
    Bytes room(block.size() + Page);
    std::size_t round = 0;
    const auto place = [&](std::size_t shift) {
        std::ranges::copy(block, room.begin() + static_cast<std::ptrdiff_t>(shift));
        return Span(room).subspan(shift, block.size());
    };
    std::size_t seen = 0;
    const PacketWatch watch = [&](Span payload) {
        Keep(payload.data());
        ++seen;
    };
    const std::size_t times = run.Times(1000);
    const auto [copy, parsing] = InTurn(
        run.Rounds(), [&] { return CopyTime(place(round * Page / 8 % Page), times); },
        [&] {
            const Span placed = place(round++ * Page / 8 % Page);
            return NanosecondsEach(times, [&](std::size_t) { parse(placed, watch); });
        });
    Demand(seen == static_cast<std::size_t>(run.Rounds()) * times * (block.size() / frameLength),
           "packets are missing");
    const auto size = static_cast<double>(block.size());
    table.Add({name + ": " + std::to_string(frameLength) + "-byte packets, a full block",
               "memcpy of the same bytes", size / parsing, size / copy, "GB/s", target, ""});
}

} // namespace

Bytes FrameOf(std::uint8_t number, const Bytes& payload)
{
    const wire::Trailer trailer = wire::BuildTrailer(payload);
    const wire::Header header = wire::BuildHeader(number, wire::PortTraffic, 3, 1, payload.size());
    Bytes frame;
    frame.reserve(payload.size() + wire::FrameOverhead);
    frame.insert(frame.end(), header.begin(), header.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    frame.insert(frame.end(), trailer.begin(), trailer.end());
    return frame;
}

Bytes BlockOf(std::size_t frameLength)
{
    const Bytes frame = FrameOf(0, Bytes(frameLength - wire::FrameOverhead, 'x'));
    Bytes block;
    while (block.size() + frameLength <= LongestBlock) {
        block.insert(block.end(), frame.begin(), frame.end());
    }
    return block;
}

void AddDumpAndFramingRows(Table& table, const RunSize& run)
{
    const Bytes bytes = Pattern(100);
    AddAgainstCopy(table, run, "dump of 100 bytes", bytes, 200'000, [&](std::size_t) {
        std::string text;
        AppendPacketText(bytes.data(), static_cast<std::uint32_t>(bytes.size()), 100, false, text);
        Keep(text.data());
    });
    for (const std::size_t length : {64u, 1024u}) {
        const Bytes payload = Pattern(length);
        const std::string measured = "framing of " + std::to_string(length) + " bytes, with its allocation";
        AddAgainstCopy(table, run, measured.c_str(), payload, 100'000,
                       [&](std::size_t i) { Keep(FrameOf(static_cast<std::uint8_t>(i & 0xFF), payload).data()); });
    }
}

void AddParsingRows(Table& table, const RunSize& run, const BlockParser& parse, const std::string& name)
{
    AddTenthsRow(table, run, parse, name, 15);
    AddTenthsRow(table, run, parse, name, 512);
    AddSpeedRow(table, run, parse, name, 15, Told);
    AddSpeedRow(table, run, parse, name, 512, AtLeast(0.3));
}

} // namespace bench
