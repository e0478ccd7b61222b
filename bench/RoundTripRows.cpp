#include "bench/DataPath.h"
#include "bench/Rows.h"

#include <array>
#include <string>
#include <vector>

namespace bench {

namespace {

constexpr std::array<std::size_t, 3> Sizes{64, 1024, 16384};
constexpr double MostOfOnePipe = 3.3;

/// The three roads of a message, side by side, each with a client.
class Roads
{
public:
    explicit Roads(RouterSession& session) : m_router(session), m_routed(m_router.OpenPort(3, 1)) {}
    ~Roads() { m_routed->Close(); }
    Roads(const Roads&) = delete;
    Roads& operator=(const Roads&) = delete;

    PipeEnd& Direct() noexcept { return m_direct.Client(); }
    PipeEnd& Skeleton() noexcept { return m_skeleton.Client(); }
    PipeEnd& Routed() noexcept { return *m_routed; }

private:
    DirectRoad m_direct;
    SkeletonRoad m_skeleton;
    const Instrument m_simulator{SimulatorPipe, true};
    RunningRouter m_router;
    std::unique_ptr<PipeEnd> m_routed;
};

/// Medians in microseconds; of the routed trips all, for their percentiles.
struct Trips
{
    double direct = 0;
    double skeleton = 0;
    double routed = 0;
    std::vector<double> allRouted;
};

std::string Name(std::size_t size)
{
    return "round trip, " + (size >= 1024 ? std::to_string(size / 1024) + " KB" : std::to_string(size) + " B");
}

/// Each client asks again as soon as it is answered, on one road at a time.
Trips MeasureBackToBack(const Effort& effort, Roads& roads, std::size_t size)
{
    const std::vector<std::uint8_t> message(size, 'm');
    const std::size_t count = effort.Times(200);
    Trips trips;
    const auto medianOf = [&](PipeEnd& client, std::vector<double>* collected) {
        RoundTrip(client, message, WarmUps, nullptr);
        std::vector<double> times;
        RoundTrip(client, message, count, &times);
        if (collected != nullptr) {
            collected->insert(collected->end(), times.begin(), times.end());
        }
        return Median(times);
    };
    const auto [direct, skeleton, routed] = InTurn(
        effort.Rounds(), [&] { return medianOf(roads.Direct(), nullptr); },
        [&] { return medianOf(roads.Skeleton(), nullptr); },
        [&] { return medianOf(roads.Routed(), &trips.allRouted); });
    trips.direct = direct;
    trips.skeleton = skeleton;
    trips.routed = routed;
    return trips;
}

/// One request at a time on each road in turn, with a pause before each, as software makes them that asks its instrument
/// now and then: the processors have gone to sleep, and each wake-up on the road costs the same on every road.
Trips MeasureNowAndThen(const Effort& effort, Roads& roads, std::size_t size)
{
    constexpr DWORD pause = 3; // ms
    const std::vector<std::uint8_t> message(size, 'm');
    std::array<std::vector<double>, 3> times;
    for (std::size_t turn = 0; turn < effort.Times(250); ++turn) {
        std::size_t at = 0;
        for (PipeEnd* const client : {&roads.Direct(), &roads.Skeleton(), &roads.Routed()}) {
            ::Sleep(pause);
            RoundTrip(*client, message, 1, &times[at++]);
        }
    }
    return {Median(times[0]), Median(times[1]), Median(times[2]), times[2]};
}

/// `when` ends the rows' names.
void AddAgainstOnePipe(Table& table, std::size_t size, const Trips& trips, const std::string& when)
{
    table.Add({Name(size) + ", simulation" + when,
               "same ends on one pipe",
               {trips.routed, "us"},
               Quantity{trips.direct, "us"},
               Bound::AtMost,
               MostOfOnePipe,
               ""});
    table.Add({Name(size) + ", seven wake-ups only" + when,
               "same ends on one pipe",
               {trips.skeleton, "us"},
               Quantity{trips.direct, "us"},
               Bound::None,
               0,
               "a bare road"});
}

void AddPercentile(Table& table, std::size_t size, const Trips& trips, const std::string& when)
{
    table.Add({Name(size) + ", simulation" + when + ", 99th percentile",
               "its own median",
               {Percentile(trips.allRouted, 99), "us"},
               Quantity{Median(trips.allRouted), "us"},
               Bound::AtMost,
               4,
               ""});
}

} // namespace

// What a request to the Wine server costs depends on whether the server runs on the processor of the thread that asks,
// and a short road keeps the two together more often than a long one. On Windows itself a kernel call runs where it is
// made. So the roads are compared where every request costs the same too, on one processor.
void AddOneProcessorRoundTripRows(Table& table, const Effort& effort, RouterSession& session)
{
    Roads roads(session);
    for (const std::size_t size : Sizes) {
        const Trips trips = MeasureBackToBack(effort, roads, size);
        AddAgainstOnePipe(table, size, trips, ", one processor");
        AddPercentile(table, size, trips, ", one processor");
    }
}

void AddRoundTripRows(Table& table, const Effort& effort, RouterSession& session)
{
    Roads roads(session);
    for (const std::size_t size : Sizes) {
        AddAgainstOnePipe(table, size, MeasureNowAndThen(effort, roads, size), ", now and then");
    }
    for (const std::size_t size : Sizes) {
        // In a tight loop over several processors the bare road itself is above what is asked of one pipe: whether the
        // router adds anything of its own is seen against that.
        const std::string when = ", all processors";
        const Trips trips = MeasureBackToBack(effort, roads, size);
        AddAgainstOnePipe(table, size, trips, when);
        table.Add({Name(size) + ", simulation" + when,
                   "seven wake-ups only",
                   {trips.routed, "us"},
                   Quantity{trips.skeleton, "us"},
                   Bound::AtMost,
                   1,
                   ""});
        AddPercentile(table, size, trips, when);
    }
}

} // namespace bench
