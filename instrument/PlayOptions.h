// The switches that all programs have in common that play a scripted instrument.
#pragma once

#include "console/CommandLine.h"
#include "instrument/InstrumentScript.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct PlayOptions
{
    instrument::Script script;
    std::string readyEvent;
    std::string stopEvent;
    std::string expectFile;
    std::int64_t milliseconds = 0; // 0: without end
    std::int64_t requests = 0;     // 0: any number
    bool quiet = false;
    bool help = false;
};

/// The common switches and, behind them, the program's own. `options` must outlive them. Switches are taken in the
/// order of the command line, so scripts and switches can be mixed.
std::vector<commandline::Switch> PlaySwitches(PlayOptions& options, std::vector<commandline::Switch> own);

/// What --help says about them: those about the run, and after them scripts, exit codes and the language.
std::string PlayRunHelp();
std::string PlayScriptHelp(const std::string& exitCodes);
