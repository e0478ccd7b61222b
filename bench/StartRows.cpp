#include "bench/DataPath.h"
#include "bench/Rows.h"
#include "client/RouterAutomation.h"
#include "tests/support/UniqueName.h"

namespace bench {

namespace {

/// Milliseconds from the activation to the object, and to a port's open pipe.
struct StartTimes
{
    double activation = 0;
    double served = 0;
};

StartTimes StartRouter()
{
    const std::wstring name = support::UniqueName(L"BenchStart");
    RouterAutomation automation;
    PipeEnd client;
    StartTimes times;
    const Stopwatch watch;
    Demand(automation.Create(RouterAutomation::Binding::Early) == RouterAutomation::Result::Done,
           "the router does not start");
    times.activation = 1000 * watch.Seconds();
    Demand(automation.Register(3, 1, UsualReadSize, UsualReadSize, name) == RouterAutomation::Result::Done &&
               client.Open(name, std::chrono::seconds(20)),
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

// The session has registered the router; COM is initialised by it too.
void AddStartRows(Table& table, const RunSize& run, RouterSession&)
{
    const Instrument simulator;
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
