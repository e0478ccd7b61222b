#include "bench/DataPath.h"
#include "bench/Rows.h"

#include <array>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr std::array<std::size_t, 3> Sizes{64, 1024, 16384};
constexpr double MostOfOnePipe = 3.3;

/// The three paths of a message, side by side, each with a client.
class DataPaths
{
public:
    explicit DataPaths(RouterSession& session) : m_router(session), m_routed(m_router.OpenPort(3, 1)) {}
    ~DataPaths() { m_routed->Close(); }
    DataPaths(const DataPaths&) = delete;
    DataPaths& operator=(const DataPaths&) = delete;

    PipeEnd& Direct() noexcept { return m_direct.Client(); }
    PipeEnd& BarePipeline() noexcept { return m_barePipeline.Client(); }
    PipeEnd& Routed() noexcept { return *m_routed; }

private:
    DirectPath m_direct;
    BarePipelinePath m_barePipeline;
    const Instrument m_simulator;
    RunningRouter m_router;
    std::unique_ptr<PipeEnd> m_routed;
};

/// Medians in microseconds; of the routed trips all, for their percentiles.
struct Latencies
{
    double direct = 0;
    double barePipeline = 0;
    double routed = 0;
    std::vector<double> allRouted;
};

std::string Name(std::size_t size)
{
    return "round trip, " + (size >= 1024 ? std::to_string(size / 1024) + " KB" : std::to_string(size) + " B");
}

/// Each client asks again as soon as it is answered, on one path at a time.
Latencies MeasureBackToBack(const RunSize& run, DataPaths& paths, std::size_t size)
{
    const std::vector<std::uint8_t> message(size, 'm');
    const std::size_t count = run.Times(200);
    Latencies trips;
    const auto medianOf = [&](PipeEnd& client, std::vector<double>* collected) {
        RoundTrip(client, message, WarmUps, nullptr);
        std::vector<double> times;
        RoundTrip(client, message, count, &times);
        if (collected != nullptr) {
            collected->insert(collected->end(), times.begin(), times.end());
        }
        return Median(times);
    };
    const auto [direct, barePipeline, routed] = InTurn(
        run.Rounds(), [&] { return medianOf(paths.Direct(), nullptr); },
        [&] { return medianOf(paths.BarePipeline(), nullptr); },
        [&] { return medianOf(paths.Routed(), &trips.allRouted); });
    trips.direct = direct;
    trips.barePipeline = barePipeline;
    trips.routed = routed;
    return trips;
}

/// One request at a time on each path in turn, with a pause before each, as software makes them that asks its
/// instrument now and then: the processors have gone to sleep, and each wake-up on the path costs the same on
/// every path.
Latencies MeasureNowAndThen(const RunSize& run, DataPaths& paths, std::size_t size)
{
    constexpr DWORD pause = 3; // ms
    const std::vector<std::uint8_t> message(size, 'm');
    std::array<std::vector<double>, 3> times;
    for (std::size_t turn = 0; turn < run.Times(250); ++turn) {
        std::size_t at = 0;
        for (PipeEnd* const client : {&paths.Direct(), &paths.BarePipeline(), &paths.Routed()}) {
            ::Sleep(pause);
            RoundTrip(*client, message, 1, &times[at++]);
        }
    }
    return {Median(times[0]), Median(times[1]), Median(times[2]), times[2]};
}

/// `when` ends the rows' names.
void AddAgainstOnePipe(Table& table, std::size_t size, const Latencies& trips, const std::string& when)
{
    table.Add({Name(size) + ", simulation" + when, "same ends on one pipe", trips.routed, trips.direct, "us",
               AtMost(MostOfOnePipe), ""});
    table.Add({Name(size) + ", seven wake-ups only" + when, "same ends on one pipe", trips.barePipeline,
               trips.direct, "us", Told, "a bare path"});
}

void AddPercentile(Table& table, std::size_t size, const Latencies& trips, const std::string& when)
{
    table.Add({Name(size) + ", simulation" + when + ", 99th percentile", "its own median",
               Percentile(trips.allRouted, 99), Median(trips.allRouted), "us", AtMost(4), ""});
}

} // namespace

// What a request to the Wine server costs depends on whether the server runs on the processor of the thread that
// asks, and a short path keeps the two together more often than a long one. On Windows itself a kernel call runs
// where it is made. So the paths are compared where every request costs the same too, on one processor.
void AddOneProcessorRoundTripRows(Table& table, const RunSize& run, RouterSession& session)
{
    DataPaths paths(session);
    for (const std::size_t size : Sizes) {
        const Latencies trips = MeasureBackToBack(run, paths, size);
        AddAgainstOnePipe(table, size, trips, ", one processor");
        AddPercentile(table, size, trips, ", one processor");
    }
}

void AddRoundTripRows(Table& table, const RunSize& run, RouterSession& session)
{
    DataPaths paths(session);
    for (const std::size_t size : Sizes) {
        AddAgainstOnePipe(table, size, MeasureNowAndThen(run, paths, size), ", now and then");
    }
    for (const std::size_t size : Sizes) {
        // In a tight loop over several processors the bare path itself is above what is asked of one pipe: whether
        // the router adds anything of its own is seen against that.
        const std::string when = ", all processors";
        const Latencies trips = MeasureBackToBack(run, paths, size);
        AddAgainstOnePipe(table, size, trips, when);
        table.Add({Name(size) + ", simulation" + when, "seven wake-ups only", trips.routed, trips.barePipeline,
                   "us", AtMost(1), ""});
        AddPercentile(table, size, trips, when);
    }
}

} // namespace bench
