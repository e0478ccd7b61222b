// What a router takes: its start, and 1 to 64 ports, each with a client that does round trips.
#include "bench/Ends.h"
#include "bench/Rows.h"
#include "client/RouterAutomation.h"
#include "tests/support/PipeClient.h"
#include "tests/support/ProcessUsage.h"
#include "tests/support/UniqueName.h"
#include "win32/Event.h"
#include "win32/Thread.h"

#include <atomic>

namespace bench {

namespace {

/// Private memory of a thread that does nothing, in this process: what any program pays for a thread here.
double BareThreadKilobytes()
{
    constexpr std::size_t Count = 32;
    const win32::Event stop(win32::Event::Kind::ManualReset);
    std::vector<win32::Thread> threads(Count);
    std::atomic<std::size_t> running{0};
    const auto kilobytes = [] {
        return static_cast<double>(UsageOf(::GetCurrentProcessId()).privateBytes) / 1024;
    };
    const double before = kilobytes();
    for (win32::Thread& thread : threads) {
        thread.Start([&] {
            ++running;
            stop.Wait(INFINITE);
        });
    }
    support::WaitUntil([&] { return running == Count; });
    const double each = (kilobytes() - before) / Count;
    stop.Set();
    return each;
}

/// Round trips a second of the first `count` clients together.
double TotalRate(std::vector<Client>& clients, std::size_t count, std::chrono::milliseconds time)
{
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> trips{0};
    std::atomic<std::size_t> unbroken{0};
    std::vector<win32::Thread> threads(count);
    const Stopwatch watch;
    for (std::size_t i = 0; i < count; ++i) {
        threads[i].Start([&, &client = clients[i]] {
            const std::vector<std::uint8_t> message(64, 'p');
            for (; !stop; ++trips) {
                client.RoundTrip(message); // what it throws ends the thread
            }
            ++unbroken;
        });
    }
    ::Sleep(static_cast<DWORD>(time.count()));
    const double rate = static_cast<double>(trips) / watch.Seconds();
    stop = true;
    for (win32::Thread& thread : threads) {
        thread.Join();
    }
    Demand(unbroken == count, "a client was not answered");
    return rate;
}

} // namespace

// The pipe is opened by the raw client: the library watches a new pipe for 20 ms before it calls it open.
void AddStartRows(Table& table, const RunSize& run)
{
    using Result = RouterAutomation::Result;
    constexpr LONG Size = RunningRouter::UsualReadSize;
    const RouterSession session(RouterSession::Transport::Simulation); // registers the router, initialises COM
    const RoleProcess simulator = Simulator();
    std::vector<double> activation; // milliseconds
    std::vector<double> served;
    for (int round = 0; round < run.Rounds(); ++round) {
        const std::string name = support::UniqueName(std::string_view("BenchStart"));
        RouterAutomation automation;
        support::PipeClient client;
        const Stopwatch watch;
        Demand(automation.Create(RouterAutomation::Binding::Early) == Result::Done, "the router does not start");
        activation.push_back(1000 * watch.Seconds());
        Demand(automation.Register(3, 1, Size, Size, console::Wide(name)) == Result::Done && client.Open(name),
               "the router serves no pipe");
        served.push_back(1000 * watch.Seconds());
        RouterProcess process;
        process.Find();
        client.Close();
        automation.Release();
        Demand(process.WaitForEnd(20'000).has_value(), "the router does not end");
    }
    table.Add({"activation to the first served pipe", "the same activation, to the object alone", Median(served),
               Median(activation), "ms", AtMost(1.5), ""});
}

void AddScalingRows(Table& table, const RunSize& run)
{
    RouterSession session(RouterSession::Transport::Simulation);
    constexpr std::size_t Most = 64;
    const RoleProcess simulator = Simulator();
    const RunningRouter router(session);
    const auto time = run.Time(std::chrono::milliseconds(1000));
    std::vector<Client> clients;
    const auto openTo = [&](std::size_t count) {
        while (clients.size() < count) {
            clients.emplace_back(router.RegisterPort(static_cast<ULONG>(clients.size() + 1)));
        }
    };
    openTo(1);
    TotalRate(clients, 1, time);
    const ProcessUsage one = UsageOf(router.Id());
    for (const std::size_t ports : {std::size_t{4}, std::size_t{16}, Most}) {
        openTo(ports);
        const auto [single, all] = InTurn(
            run.quick ? 1 : 5, [&] { return TotalRate(clients, 1, time); },
            [&] { return TotalRate(clients, ports, time); });
        table.Add({"round trips of " + std::to_string(ports) + " ports together", "1 port", all, single, "/s",
                   AtLeast(1), ""});
    }
    const ProcessUsage many = UsageOf(router.Id());
    const auto perPort = [](auto first, auto last) {
        return (static_cast<double>(last) - static_cast<double>(first)) / (Most - 1);
    };
    const double bare = BareThreadKilobytes();
    table.Add({"private memory per port, beyond its bare thread", "",
               perPort(one.privateBytes, many.privateBytes) / 1024 - bare, std::nullopt, "KB", AtMost(300),
               "a thread takes " + std::to_string(static_cast<int>(bare)) + " KB in any program here"});
    table.Add(
        {"threads per port", "", perPort(one.threads, many.threads), std::nullopt, "threads", AtMost(1), ""});
}

} // namespace bench
