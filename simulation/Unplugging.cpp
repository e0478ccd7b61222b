#include "simulation/Unplugging.h"

#include "simulation/scenario/Scenario.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace sim {

namespace {

// A port looks for its device once a second, the command thread every 10 ms; the rest is for everything else.
constexpr double StatedWaitsMs = 1000 + 10;
constexpr double MarginMs = 250;

double Quantile(const std::vector<std::uint32_t>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))] / 1000.0;
}

} // namespace

int RunUnplugging(const Arguments& arguments)
{
    const auto begin = std::chrono::steady_clock::now();
    Options options = arguments.options;
    options.seed = arguments.first;
    options.faults = FaultLevel::None;
    options.isCalm = true;
    options.hours = static_cast<int>(arguments.hours) + 1;
    options.prints = arguments.prints;
    const auto pulls = static_cast<int>(arguments.hours * 3600 / arguments.everySeconds);
    const auto everyMs = static_cast<std::uint32_t>(arguments.everySeconds * 1000);
    Outcome outcome = Run(options, [=] { Play(UnpluggingPlan(pulls, everyMs)); });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!outcome.fault.empty()) {
        std::printf("seed %llu: %s\n", static_cast<unsigned long long>(options.seed), outcome.fault.c_str());
        return 1;
    }
    std::vector<std::uint32_t>& waits = outcome.replugAnswerUs;
    std::sort(waits.begin(), waits.end());
    std::printf("%d pulls in %.1f hours of virtual time, %.1f s here; %llu requests answered\n", pulls,
                static_cast<double>(outcome.virtualUs) / 3.6e9, seconds,
                static_cast<unsigned long long>(outcome.requests));
    if (waits.empty()) {
        std::puts("no client had an answer after a pull");
        return 1;
    }
    const double late = Quantile(waits, 0.99);
    std::printf("from the plugging to the first answer of each client, %zu times: least %.0f ms, half %.0f ms, "
                "p90 %.0f ms, p99 %.0f ms, most %.0f ms\n",
                waits.size(), Quantile(waits, 0), Quantile(waits, 0.5), Quantile(waits, 0.9), late,
                Quantile(waits, 1));
    if (late > StatedWaitsMs + MarginMs) {
        std::printf("p99 is above the stated waits and %.0f ms\n", MarginMs);
        return 1;
    }
    return 0;
}

} // namespace sim
