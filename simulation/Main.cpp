#include "simulation/Arguments.h"
#include "simulation/EachCall.h"
#include "simulation/Unplugging.h"
#include "simulation/kernel/Memory.h"
#include "simulation/kernel/Scheduler.h"
#include "simulation/kernel/Switches.h"
#include "simulation/scenario/Account.h"
#include "simulation/scenario/ReplyScenario.h"
#include "simulation/scenario/Scenario.h"
#include "simulation/scenario/TracerScenario.h"
#include "simulation/scenario/TransferScenario.h"

#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;
using sim::Arguments;
using sim::Outcome;

struct Sums
{
    std::uint64_t runs = 0, points = 0, switches = 0, idleUs = 0, virtualUs = 0, requests = 0, injected = 0;
    std::uint64_t fewestPoints = ~std::uint64_t{0};

    void Add(const Outcome& outcome)
    {
        ++runs;
        points += outcome.points;
        switches += outcome.switches;
        idleUs += outcome.idleUs;
        virtualUs += outcome.virtualUs;
        requests += outcome.requests;
        injected += outcome.injectedFaults;
        fewestPoints = outcome.points < fewestPoints ? outcome.points : fewestPoints;
    }
};

auto PlayOf(const Arguments& arguments)
{
    switch (arguments.subject) {
    case sim::Subject::Tracer: return &sim::PlayTracer;
    case sim::Subject::Transfers: return &sim::PlayTransfers;
    case sim::Subject::Replies: return &sim::PlayReplies;
    case sim::Subject::Router: break;
    }
    return &sim::PlayScenario;
}

/// How it is called, with a blank after it.
const char* SwitchOf(const Arguments& arguments)
{
    switch (arguments.subject) {
    case sim::Subject::Tracer: return "--tracer ";
    case sim::Subject::Transfers: return "--transfers ";
    case sim::Subject::Replies: return "--replies ";
    case sim::Subject::Router: break;
    }
    return "";
}

double Since(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

const char* NameOf(sim::FaultLevel level)
{
    return level == sim::FaultLevel::None ? "none" : level == sim::FaultLevel::Some ? "some" : "all";
}

unsigned long long Shown(std::uint64_t number)
{
    return number;
}

void PrintSums(const Sums& sums, double seconds)
{
    const auto each = [&](std::uint64_t sum) { return static_cast<double>(sum) / static_cast<double>(sums.runs); };
    std::printf(
        "%llu seeds in %.1f s: %.0f a second; each %.0f points (fewest %llu), %.0f switches, %.0f ms idle, "
        "%.0f ms of virtual time, %.0f requests answered, %.1f injected faults\n",
        Shown(sums.runs), seconds, static_cast<double>(sums.runs) / seconds, each(sums.points),
        Shown(sums.fewestPoints), each(sums.switches), each(sums.idleUs) / 1000, each(sums.virtualUs) / 1000,
        each(sums.requests), each(sums.injected));
}

bool PrintSwitches()
{
    bool whole = true;
    std::puts("\nSwitches of Windows, how often each was taken and not:");
    for (std::size_t i = 0; i < sim::SwitchCount; ++i) {
        const sim::Switches::Counts counts = sim::Switches::Total()[i];
        const bool both = counts.yes != 0 && counts.no != 0;
        whole = whole && both;
        std::printf("  %-28s %12llu %12llu%s\n", sim::NameOf(static_cast<sim::Switch>(i)), Shown(counts.yes),
                    Shown(counts.no), both ? "" : "  NEVER");
    }
    std::puts("\nRows of the account:");
    for (std::size_t i = 0; i < sim::RowCount; ++i) {
        std::printf("  %12llu  %s\n", Shown(sim::Account::Rows()[i]),
                    sim::Account::NameOf(static_cast<sim::Row>(i)));
    }
    return whole;
}

void PrintFailure(const Arguments& arguments, const sim::Options& options, const Outcome& outcome)
{
    std::printf("\nseed %llu: %s\n", Shown(options.seed), outcome.fault.c_str());
    if (!outcome.injectedInto.empty()) {
        std::printf("  %llu faults were injected, the last into %s\n", Shown(outcome.injectedFaults),
                    outcome.injectedInto.c_str());
    }
    std::string command = std::string("./simulate ") + SwitchOf(arguments) + "--seed " +
                          std::to_string(options.seed) + " --faults " + NameOf(options.faults);
    if (options.requests != 0) {
        command += " --requests " + std::to_string(options.requests);
    }
    std::printf("  replay it: %s --trace\n", command.c_str());
    if (arguments.subject != sim::Subject::Router) {
        return;
    }
    // The same seed with fewer requests, as far as it still fails: less to read.
    sim::Options smaller = options;
    for (int requests : {50, 20, 8, 3}) {
        smaller.requests = requests;
        if (sim::Run(smaller, PlayOf(arguments)).fault.empty()) {
            continue;
        }
        std::printf("  a smaller one fails too: ./simulate --seed %llu --faults %s --requests %d --trace\n",
                    Shown(options.seed), NameOf(options.faults), requests);
    }
}

// A run that prints has shown its last events already; any other is repeated with them kept.
void PrintLastEvents(const Arguments& arguments, sim::Options options)
{
    std::puts("\nThe last events:");
    options.keepsEvents = true;
    for (const std::string& event : sim::Run(options, PlayOf(arguments)).lastEvents) {
        std::puts(event.c_str());
    }
}

int RunSeeds(const Arguments& arguments)
{
    const Clock::time_point begin = Clock::now();
    double shownAt = 0;
    Sums sums;
    for (std::uint64_t i = 0; arguments.minutes ? Since(begin) < *arguments.minutes * 60 : i < arguments.count;
         ++i)
    {
        sim::Options options = arguments.options;
        options.seed = arguments.first + i;
        options.prints = arguments.prints;
        const Outcome outcome = sim::Run(options, PlayOf(arguments));
        sums.Add(outcome);
        if (arguments.printsHashes) {
            std::printf("%llu %016llx\n", Shown(options.seed), Shown(outcome.hash));
        }
        if (!outcome.fault.empty()) {
            if (!arguments.prints) {
                PrintLastEvents(arguments, options);
            }
            PrintFailure(arguments, options, outcome);
            return 1;
        }
        if (!arguments.quiet && Since(begin) - shownAt > 5) {
            shownAt = Since(begin);
            std::fprintf(stderr, "\r%llu seeds, %.0f a second ", Shown(sums.runs),
                         static_cast<double>(sums.runs) / shownAt);
        }
    }
    if (arguments.printsHashes) {
        return 0;
    }
    PrintSums(sums, Since(begin));
    const bool whole = arguments.oneSeed || arguments.subject != sim::Subject::Router || PrintSwitches();
    if (arguments.countsMustBeWhole && !whole) {
        std::puts("a switch was never taken, or always");
        return 1;
    }
    return 0;
}

} // namespace

int main(int count, char** words)
{
    std::string error;
    const Arguments arguments = sim::ParseArguments(count, words, error);
    if (!error.empty()) {
        std::fprintf(stderr, "simulate: %s (see --help)\n", error.c_str());
        return 2;
    }
    if (arguments.help) {
        std::fputs(sim::HelpText, stdout);
        return 0;
    }
    sim::MakeUncaughtExceptionsFaults();
    if (arguments.eachCall) {
        return sim::RunEachCall(arguments);
    }
    return arguments.unplugs ? sim::RunUnplugging(arguments) : RunSeeds(arguments);
}
