#include "simulation/scenario/Plan.h"

#include "simulation/kernel/Scheduler.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

constexpr int FewestRequests = 104;

Manner AnyManner()
{
    constexpr std::array<Manner, 9> manners = {Manner::WellBehaved, Manner::WellBehaved, Manner::WellBehaved,
                                               Manner::Pipelining,  Manner::Pipelining,  Manner::Pipelining,
                                               Manner::Silent,      Manner::Dying,       Manner::Dying};
    return manners[Random(manners.size())];
}

ClientPlan AnyClient(int requests)
{
    ClientPlan plan;
    plan.manner = AnyManner();
    plan.requests = requests;
    plan.together = plan.manner == Manner::WellBehaved ? 1 : 2 + static_cast<int>(Random(7));
    plan.longest = 16 << (2 * Random(4));
    plan.leaves = Random(3) == 0;
    plan.hurries = Random(3) == 0;
    return plan;
}

} // namespace

Plan DrawPlan(int requests)
{
    Plan plan;
    plan.path = Random(2) == 0 ? Path::SimulatorPipe : Path::Usb;
    const std::size_t count = 2 + Random(2);
    const int wanted = requests != 0 ? requests : FewestRequests + static_cast<int>(Random(20));
    const int each = std::max(1, wanted / static_cast<int>(count) + 1);
    constexpr std::array<std::uint8_t, 3> types = {3, 5, 200};
    constexpr std::array<std::uint8_t, 3> numbers = {1, 2, 2};
    for (std::size_t i = 0; i < count; ++i) {
        PortPlan port;
        port.deviceType = types[i];
        port.port = numbers[i];
        port.bufferSize = Random(4) == 0 ? 4096 : 16384;
        port.client = AnyClient(each);
        plan.ports.push_back(port);
    }
    plan.pulls = Random(2) == 0 ? 0 : 1 + static_cast<int>(Random(3));
    plan.leavesTogether = Random(4) == 0;
    plan.changesTraces = Random(4) == 0;
    plan.stopsEarly = Random(8) == 0;
    if (plan.stopsEarly) {
        for (PortPlan& port : plan.ports) {
            port.client.requests *= 2; // there is more to do when it stops
        }
    }
    plan.foreignDevice = Random(4) == 0;
    plan.stalls = Random(24) == 0;
    if (plan.stalls) {
        plan.ports[0].client.manner = Manner::Greedy;
        plan.ports[0].client.longest = 16;
    }
    plan.flushLimitMs = Random(2) == 0 ? 0 : 500;
    plan.splits = Random(4) == 0;
    plan.merges = Random(12) == 0;
    plan.doubles = Random(6) == 0;
    plan.delays = Random(6) == 0;
    plan.broadcasts = Random(4) == 0;
    plan.skipsNumbers = Random(6) == 0;
    plan.comesIncomplete = Random(16) == 0;
    plan.hasFurtherEndpoints = Random(16) == 0;
    plan.hasDeafPort = Random(16) == 0;
    plan.hasOddName = Random(16) == 0;
    plan.writesNothing = Random(16) == 0;
    plan.sendsOtherBytes = Random(16) == 0;
    return plan;
}

Plan ScriptedPlan(Path path)
{
    Plan plan;
    plan.path = path;
    plan.ports = {{3, 1, 4096, {.requests = 15, .pauseMs = 20}},
                  {5,
                   2,
                   4096,
                   {.manner = Manner::Pipelining, .requests = 24, .together = 3, .leaves = true, .pauseMs = 30}}};
    plan.pulls = 1;
    plan.flushLimitMs = 500;
    plan.broadcasts = true;
    return plan;
}

Plan UnpluggingPlan(int pulls, std::uint32_t everyMs)
{
    constexpr int Endless = 1 << 30;
    Plan plan;
    plan.path = Path::Usb;
    plan.ports = {{3, 1, 4096, {.requests = Endless, .pauseMs = 10'000}},
                  {5, 2, 4096, {.requests = Endless, .pauseMs = 7'000}}};
    plan.pulls = pulls;
    plan.pullEveryMs = everyMs;
    plan.longestAwayMs = everyMs / 10;
    plan.endsWithPulls = true;
    return plan;
}

} // namespace sim
