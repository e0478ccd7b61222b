#include "bench/Road.h"
#include "bench/Rows.h"

#include <array>
#include <string>
#include <vector>

namespace bench {

namespace {

std::string SizeText(std::size_t size)
{
    return size >= 1024 ? std::to_string(size / 1024) + " KB" : std::to_string(size) + " B";
}

struct Roads
{
    PipeEnd& direct;
    PipeEnd& skeleton;
    PipeEnd& routed;
};

void AddRows(Table& table, const Effort& effort, Roads roads, std::size_t size)
{
    const std::vector<std::uint8_t> message(size, 'm');
    const std::size_t count = effort.Times(200);
    std::vector<double> all;
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
        effort.Rounds(), [&] { return medianOf(roads.direct, nullptr); },
        [&] { return medianOf(roads.skeleton, nullptr); }, [&] { return medianOf(roads.routed, &all); });
    const std::string name = "round trip, " + SizeText(size);
    table.Add({name + ", simulation",
               "same ends on one pipe",
               {routed, "us"},
               Quantity{direct, "us"},
               Bound::AtMost,
               3.3,
               ""});
    table.Add({name + ", seven wake-ups and nothing else",
               "same ends on one pipe",
               {skeleton, "us"},
               Quantity{direct, "us"},
               Bound::None,
               0,
               "the floor"});
    table.Add({name + ", simulation, 99th percentile",
               "its own median",
               {Percentile(all, 99), "us"},
               Quantity{Median(all), "us"},
               Bound::AtMost,
               4,
               ""});
}

/// One request at a time on each road in turn, with a pause before each, as software makes them that asks its instrument
/// now and then: the processors have gone to sleep, and each wake-up on the road costs the same on every road.
void AddPacedRows(Table& table, const Effort& effort, Roads roads)
{
    constexpr DWORD pause = 3; // ms
    const std::vector<std::uint8_t> message(64, 'm');
    std::array<std::vector<double>, 3> times;
    for (std::size_t turn = 0; turn < effort.Times(400); ++turn) {
        std::size_t at = 0;
        for (PipeEnd* const client : {&roads.direct, &roads.skeleton, &roads.routed}) {
            ::Sleep(pause);
            RoundTrip(*client, message, 1, &times[at++]);
        }
    }
    const double direct = Median(times[0]);
    table.Add({"round trip, 64 B, simulation, now and then",
               "same ends on one pipe",
               {Median(times[2]), "us"},
               Quantity{direct, "us"},
               Bound::AtMost,
               3.3,
               "3 ms apart"});
    table.Add({"round trip, 64 B, seven wake-ups, now and then",
               "same ends on one pipe",
               {Median(times[1]), "us"},
               Quantity{direct, "us"},
               Bound::None,
               0,
               "the floor"});
}

} // namespace

void AddRoundTripRows(Table& table, const Effort& effort, RouterSession& session)
{
    DirectRoad direct;
    SkeletonRoad skeleton;
    const Instrument simulator(SimulatorPipe, true);
    RunningRouter router(session);
    const auto routed = router.OpenPort(3, 1);
    for (const std::size_t size : {std::size_t{64}, std::size_t{1024}, std::size_t{16384}}) {
        AddRows(table, effort, {direct.Client(), skeleton.Client(), *routed}, size);
    }
    AddPacedRows(table, effort, {direct.Client(), skeleton.Client(), *routed});
    routed->Close();
}

} // namespace bench
