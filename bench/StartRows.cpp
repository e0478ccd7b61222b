#include "bench/EmptyServer.h"
#include "bench/Road.h"
#include "bench/Rows.h"
#include "client/RouterAutomation.h"
#include "tests/support/UniqueName.h"

#include <stdexcept>

namespace bench {

namespace {

/// Seconds from the activation until a port's pipe is open.
double RouterStartSeconds()
{
    const std::wstring name = support::UniqueName(L"BenchStart");
    RouterAutomation automation;
    PipeEnd client;
    const Stopwatch watch;
    if (automation.Create(RouterAutomation::Binding::Early) != RouterAutomation::Result::Done ||
        automation.Register(3, 1, UsualReadSize, UsualReadSize, name) != RouterAutomation::Result::Done ||
        !client.Open(name, std::chrono::seconds(20)))
    {
        throw std::runtime_error("the router does not start or serves no pipe");
    }
    const double seconds = watch.Seconds();
    RouterProcess process;
    process.Find();
    client.Close();
    automation.Release();
    if (!process.WaitForEnd(20'000)) {
        throw std::runtime_error("the router does not end");
    }
    return seconds;
}

} // namespace

// The session has registered the router; COM is initialised by it too.
void AddStartRows(Table& table, const Effort& effort, RouterSession&)
{
    const EmptyServerRegistration emptyServer;
    const Instrument simulator(SimulatorPipe, true);
    const auto [empty, router] = InTurn(
        effort.Rounds(), [&] { return 1000 * emptyServer.ActivationSeconds(); },
        [] { return 1000 * RouterStartSeconds(); });
    table.Add({"activation to the first served pipe",
               "activation of an empty automation server",
               {router, "ms"},
               Quantity{empty, "ms"},
               Bound::AtMost,
               1.5,
               ""});
}

} // namespace bench
