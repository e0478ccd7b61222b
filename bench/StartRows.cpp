#include "bench/Ends.h"
#include "bench/Rows.h"
#include "client/RouterAutomation.h"
#include "tests/support/PipeClient.h"
#include "tests/support/UniqueName.h"

namespace bench {

namespace {

/// Milliseconds from the activation to the object, and to a port's open pipe. A port of the client library would
/// be open a little later: it watches a new pipe for 20 ms.
struct StartTimes
{
    double activation = 0;
    double served = 0;
};

StartTimes StartRouter()
{
    using Result = RouterAutomation::Result;
    const std::string name = support::UniqueName(std::string_view("BenchStart"));
    RouterAutomation automation;
    support::PipeClient client;
    StartTimes times;
    const Stopwatch watch;
    Demand(automation.Create(RouterAutomation::Binding::Early) == Result::Done, "the router does not start");
    times.activation = 1000 * watch.Seconds();
    constexpr LONG Size = RunningRouter::UsualReadSize;
    Demand(automation.Register(3, 1, Size, Size, console::Wide(name)) == Result::Done && client.Open(name),
           "the router serves no pipe");
    times.served = 1000 * watch.Seconds();
    RouterProcess process;
    process.Find();
    client.Close();
    automation.Release();
    Demand(process.WaitForEnd(20'000).has_value(), "the router does not end");
    return times;
}

} // namespace

void AddStartRows(Table& table, const RunSize& run)
{
    const RouterSession session(RouterSession::Transport::Simulation); // registers the router, initialises COM
    const RoleProcess simulator = Simulator();
    std::vector<double> activation;
    std::vector<double> served;
    for (int round = 0; round < run.Rounds(); ++round) {
        const StartTimes times = StartRouter();
        activation.push_back(times.activation);
        served.push_back(times.served);
    }
    table.Add({"activation to the first served pipe", "the same activation, to the object alone", Median(served),
               Median(activation), "ms", AtMost(1.5), ""});
}

} // namespace bench
