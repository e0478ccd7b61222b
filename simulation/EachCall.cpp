#include "simulation/EachCall.h"

#include "simulation/scenario/Scenario.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <string_view>

namespace sim {

namespace {

struct Kind
{
    unsigned calls = 0, errors = 0, runs = 0;
};

const char* NameOf(Path path)
{
    return path == Path::Usb ? "usb" : "pipe";
}

Outcome RunSession(Path path, Options options)
{
    options.faults = FaultLevel::None;
    options.isCalm = true;
    return Run(options, [path] { Play(ScriptedPlan(path)); });
}

void PrintFailure(Path path, const Options& options, const Outcome& outcome)
{
    std::printf("\n%s fails, call %llu, in way %u: %s\n", outcome.injectedInto.c_str(),
                static_cast<unsigned long long>(options.injection.call), options.injection.error,
                outcome.fault.c_str());
    std::printf("  replay it: ./simulate --each-call --path %s --call %llu --error %u --trace\n", NameOf(path),
                static_cast<unsigned long long>(options.injection.call), options.injection.error);
}

bool RunOne(Path path, const Options& options)
{
    const Outcome outcome = RunSession(path, options);
    if (!outcome.fault.empty()) {
        PrintFailure(path, options, outcome);
    }
    return outcome.fault.empty();
}

/// Up to the call that fails the run is the one without a failure; so the calls have the same numbers.
bool RunPath(Path path, Options options)
{
    options.injection = {};
    options.keepsCalls = true;
    const Outcome whole = RunSession(path, options);
    if (!whole.fault.empty()) {
        std::printf("the session fails by itself: %s\n", whole.fault.c_str());
        return false;
    }
    options.keepsCalls = false;
    std::map<std::string_view, Kind> kinds;
    bool good = true;
    for (std::size_t i = 0; i < whole.calls.size(); ++i) {
        Kind& kind = kinds[whole.calls[i].name];
        ++kind.calls;
        kind.errors = whole.calls[i].errors;
        for (unsigned error = 0; error < whole.calls[i].errors; ++error) {
            ++kind.runs;
            options.injection = {i + 1, error};
            good = RunOne(path, options) && good;
        }
    }
    std::printf("\nThe session over %s:\n  %8s %8s %8s\n", path == Path::Usb ? "USB" : "the simulator's pipe",
                "calls", "errors", "runs");
    for (const auto& [name, kind] : kinds) {
        std::printf("  %8u %8u %8u  %s\n", kind.calls, kind.errors, kind.runs, name.data());
    }
    return good;
}

} // namespace

int RunEachCall(const Arguments& arguments)
{
    Options options = arguments.options;
    options.prints = arguments.prints;
    if (options.injection.call != 0) {
        return RunOne(*arguments.path, options) ? 0 : 1;
    }
    const auto begin = std::chrono::steady_clock::now();
    bool good = true;
    for (const Path path : {Path::SimulatorPipe, Path::Usb}) {
        good = (arguments.path.value_or(path) != path || RunPath(path, options)) && good;
    }
    std::printf("%.1f s\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    return good ? 0 : 1;
}

} // namespace sim
