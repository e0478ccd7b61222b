#include "bench/Ends.h"
#include "bench/Rows.h"

namespace bench {

namespace {

constexpr std::array<std::size_t, 3> Sizes{64, 1024, 16384};

enum Path { OnePipe, ThroughBarePipeline, ThroughRouter, PathCount };

/// The three paths of a message, side by side.
struct Paths
{
    RouterSession session{RouterSession::Transport::Simulation};
    const RoleProcess bareInstrument = BareInstrument();
    const RoleProcess pipelineInstrument = BareInstrument();
    const RoleProcess barePipeline = BarePipeline(pipelineInstrument);
    const RoleProcess simulator = Simulator();
    const RunningRouter router{session};
    std::array<Client, PathCount> clients{Client(bareInstrument.Pipe()), Client(barePipeline.Pipe()),
                                          Client(router.RegisterPort(1))};
};

/// Microseconds of each trip, by path.
using Latencies = std::array<std::vector<double>, PathCount>;

std::string Name(std::size_t size)
{
    return "round trip, " + (size >= 1024 ? std::to_string(size / 1024) + " KB" : std::to_string(size) + " B");
}

/// Each client asks again as soon as it is answered, on one path at a time.
Latencies MeasureBackToBack(const RunSize& run, Paths& paths, std::size_t size)
{
    const std::vector<std::uint8_t> message(size, 'm');
    Latencies latencies;
    for (int round = 0; round < run.Rounds(); ++round) {
        for (std::size_t path = 0; path < PathCount; ++path) {
            const auto times = Microseconds(run.Times(200), [&] { paths.clients[path].RoundTrip(message); });
            latencies[path].insert(latencies[path].end(), times.begin(), times.end());
        }
    }
    return latencies;
}

/// One request at a time on each path in turn, with a pause before each, as software makes them that asks its
/// instrument now and then: the processors have gone to sleep, and each wake-up on the path costs the same on
/// every path.
Latencies MeasureNowAndThen(const RunSize& run, Paths& paths, std::size_t size)
{
    const std::vector<std::uint8_t> message(size, 'm');
    Latencies latencies;
    for (std::size_t turn = 0; turn < run.Times(250); ++turn) {
        for (std::size_t path = 0; path < PathCount; ++path) {
            ::Sleep(3);
            const Stopwatch watch;
            paths.clients[path].RoundTrip(message);
            latencies[path].push_back(watch.Nanoseconds() / 1000);
        }
    }
    return latencies;
}

/// `when` ends the rows' names; `target` is the ratio that the router is to keep.
void AddAgainstOnePipe(Table& table, std::size_t size, const Latencies& latencies, const std::string& when,
                       double target)
{
    const double onePipe = Median(latencies[OnePipe]);
    table.Add({Name(size) + ", simulation" + when, "same ends on one pipe", Median(latencies[ThroughRouter]),
               onePipe, "us", AtMost(target), ""});
    table.Add({Name(size) + ", seven wake-ups only" + when, "same ends on one pipe",
               Median(latencies[ThroughBarePipeline]), onePipe, "us", Told, "a bare path"});
}

Latencies AddBackToBack(Table& table, const RunSize& run, Paths& paths, std::size_t size, const std::string& when,
                        double target)
{
    Latencies latencies = MeasureBackToBack(run, paths, size);
    AddAgainstOnePipe(table, size, latencies, when, target);
    const std::vector<double>& routed = latencies[ThroughRouter];
    table.Add({Name(size) + ", simulation" + when + ", 99th percentile", "its own median", Percentile(routed, 99),
               Median(routed), "us", AtMost(2), ""});
    return latencies;
}

} // namespace

// What a request to the Wine server costs depends on whether the server runs on the processor of the thread that
// asks, and a short path keeps the two together more often than a long one. On Windows itself a kernel call runs
// where it is made. So the paths are compared where every request costs the same too, on one processor.
void AddOneProcessorRoundTripRows(Table& table, const RunSize& run)
{
    Paths paths;
    for (const std::size_t size : Sizes) {
        AddBackToBack(table, run, paths, size, ", one processor", 3.1);
    }
}

void AddRoundTripRows(Table& table, const RunSize& run)
{
    Paths paths;
    for (const std::size_t size : Sizes) {
        AddAgainstOnePipe(table, size, MeasureNowAndThen(run, paths, size), ", now and then", 2.7);
    }
    for (const std::size_t size : Sizes) {
        // In a tight loop over several processors the bare path itself is above what is asked of one pipe: whether
        // the router adds anything of its own is seen against that.
        const std::string when = ", all processors";
        const Latencies latencies = AddBackToBack(table, run, paths, size, when, 3.2);
        table.Add({Name(size) + ", simulation" + when, "seven wake-ups only", Median(latencies[ThroughRouter]),
                   Median(latencies[ThroughBarePipeline]), "us", AtMost(0.9), ""});
    }
}

} // namespace bench
