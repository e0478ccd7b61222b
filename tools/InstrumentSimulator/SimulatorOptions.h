// The simulator's command line.
#pragma once

#include "tools/common/CommandLine.h"
#include "tools/common/InstrumentScript.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct SimulatorOptions
{
    instrument::Script script;
    std::string pipeName = "UsbPipeSimulator"; // the router knows only this one
    std::string readyEvent;
    std::string stopEvent;
    std::string expectFile;
    std::int64_t milliseconds = 0; // 0: without end
    std::int64_t requests = 0;     // 0: any number
    bool quiet = false;
    bool help = false;
};

/// Switches are taken in their order, so scripts and switches can be mixed.
std::optional<commandline::Error> ReadOptions(const std::vector<std::string>& arguments,
                                              SimulatorOptions& options);

/// All there is to say about the program.
std::string SimulatorHelp();
