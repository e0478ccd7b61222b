#include "bench/Rows.h"
#include "bench/TracerRig.h"
#include "diag/TimeStamp.h"
#include "tests/support/WaitUntil.h"
#include "trace/Trace.h"

#include <cstdio>
#include <stdexcept>

namespace bench {

namespace {

constexpr const char* Format = "CCyUSBDriver::USBCommandProcessThread overlapped write %d bytes, burst %d";

void Nothing(int) {}

void AddUnwantedRow(Table& table, const RunSize& run)
{
    void (*volatile empty)(int) = &Nothing;
    const std::size_t times = run.Times(3'000'000);
    const auto [call, trace] = InTurn(
        run.Rounds(), [&] { return NanosecondsEach(times, [&](std::size_t i) { empty(static_cast<int>(i)); }); },
        [&] {
            return NanosecondsEach(times, [](std::size_t i) {
                Trace(TracerRig::UnwantedChannel, trace::Usb, Format, static_cast<int>(i), 1);
            });
        });
    table.Add({"trace call that nobody wants",
               "call of an empty function by pointer",
               {trace, "ns"},
               Quantity{call, "ns"},
               Bound::AtMost,
               10,
               "its kernel calls are counted below"});
}

/// What a producer does for a line, but for handing it over.
double FormattingTime(std::size_t lines)
{
    std::vector<std::string> kept;
    kept.reserve(lines);
    return NanosecondsEach(lines, [&](std::size_t i) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): 2 KB a line
        std::array<char, TraceFrontEnd::MaximumLineLength + 1> line;
        std::snprintf(line.data(), line.size(), Format, static_cast<int>(i), 1);
        std::string text(line.data());
        text.insert(0, TimeStampLength, ' ');
        SYSTEMTIME now;
        ::GetLocalTime(&now);
        WriteTimeStamp(text.data(), now);
        kept.push_back(std::move(text));
    });
}

struct Burst
{
    double nanosecondsEach = 0; // on the producer's side
    double linesPerSecond = 0;  // until the last one is in the file
    std::size_t lost = 0;
};

/// Fewer lines at once than the tracer's queue is given up at, so none may be lost.
Burst TraceBurst(const TracerRig& rig, std::size_t lines, int number)
{
    const std::string mark = "burst " + std::to_string(number) + "\r";
    const Stopwatch watch;
    Burst burst;
    burst.nanosecondsEach = NanosecondsEach(lines, [number](std::size_t i) {
        Trace(trace::RouterChannel, trace::Usb, Format, static_cast<int>(i), number);
    });
    const std::string last = "write " + std::to_string(lines - 1) + " bytes, " + mark;
    support::WaitUntil([&] { return rig.LinesWith(last) == 1; });
    burst.linesPerSecond = static_cast<double>(lines) / watch.Seconds();
    burst.lost = lines - rig.LinesWith(mark);
    return burst;
}

void AddWantedRows(Table& table, const RunSize& run, const TracerRig& rig)
{
    const std::size_t lines = run.Times(4000);
    int number = 1;
    std::size_t lost = 0;
    std::vector<double> rates;
    const auto [formatting, tracing] = InTurn(
        run.Rounds(), [&] { return FormattingTime(lines); },
        [&] {
            const Burst burst = TraceBurst(rig, lines, ++number);
            lost += burst.lost;
            rates.push_back(burst.linesPerSecond);
            return burst.nanosecondsEach;
        });
    table.Add({"trace line wanted by the file, producer's side",
               "the same formatting into memory",
               {tracing, "ns"},
               Quantity{formatting, "ns"},
               Bound::AtMost,
               3,
               ""});
    table.Add({"trace lines into the file",
               "",
               {Median(rates), "lines/s"},
               std::nullopt,
               Bound::None,
               0,
               "bursts of " + std::to_string(lines)});
    table.Add({"trace lines lost below the overflow rule",
               "",
               {static_cast<double>(lost), "lines"},
               std::nullopt,
               Bound::AtMost,
               0,
               ""});
}

} // namespace

void AddTraceRows(Table& table, const RunSize& run)
{
    const TracerRig rig;
    AddUnwantedRow(table, run);
    AddWantedRows(table, run, rig);
}

} // namespace bench
