// A program that plays a scripted instrument: command line, lines, summary, exit code.
#pragma once

#include "console/CommandLine.h"
#include "instrument/Endpoint.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace instrument {

/// What a program says and does of its own.
struct PlayProgram
{
    enum ExitCode { Good = 0, Failed = 1, Taken = 3, Refused = 4, ImageUnreadable = 5, ImageWrong = 6 };

    /// The place that the instrument is played at, and lines about it.
    struct Place
    {
        std::unique_ptr<Endpoint> endpoint;
        std::string serving; // as soon as the router can find the instrument
        std::string taken;
        std::string refused; // a reason in parentheses follows
    };

    std::string name;
    std::string help;         // the first part of --help
    std::string switchHelp;   // lines about `switches`
    std::string exitCodeHelp; // lines about Taken and Refused
    std::vector<commandline::Switch> switches;
    std::function<Place(Engine& engine, HANDLE stop)> place; // asked once the switches are read
};

/// Reads the command line and plays until something ends it: a limit, Ctrl+C, Ctrl+Break or the stop event. The
/// exit code.
int Run(const PlayProgram& program, int count, wchar_t** arguments);

} // namespace instrument
