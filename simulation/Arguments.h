// The command line of the simulation.
#pragma once

#include "simulation/kernel/Scheduler.h"
#include "simulation/scenario/Plan.h"

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

/// What a run of seeds plays.
enum class Subject { Router, Tracer, Transfers, Replies };

struct Arguments
{
    std::uint64_t first = 1; // seed
    std::uint64_t count = 1000;
    std::optional<double> minutes;
    bool oneSeed = false;
    bool prints = false; // every event of one seed
    bool printsHashes = false;
    bool countsMustBeWhole = false; // a switch that was taken one way only is a failure
    bool quiet = false;
    bool eachCall = false;
    std::optional<Path> path; // of --each-call; both otherwise
    bool unplugs = false;
    Subject subject = Subject::Router;
    std::uint64_t hours = 24, everySeconds = 600; // of --unplug
    bool help = false;
    Options options;
};

/// `error`: one line about what is wrong, empty when nothing is.
Arguments ParseArguments(int count, char** words, std::string& error);
extern const char* const HelpText;

} // namespace sim
