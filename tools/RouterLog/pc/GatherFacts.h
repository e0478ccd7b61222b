// Asks Windows what doctor judges by.
#pragma once

#include "tools/RouterLog/doctor/PcFacts.h"

#include <chrono>
#include <string>
#include <vector>

namespace routerlog {

/// Changes nothing on the PC, but for a file that it makes in the log's folder and removes at once. `pipes`: names
/// of ports to look for, in UTF-8.
PcFacts GatherFacts(const std::vector<std::string>& pipes);

/// Starts the registered router, or uses the one that runs, creates its object and calls it. A call that takes
/// longer than `limit` is given up; its thread ends with the process.
Activation Activate(std::chrono::milliseconds limit);

/// RouterLog's own version, as files show it: "1.0.0.0".
std::string OwnVersion();

// The parts of GatherFacts, one to a file.
void GatherRegistration(PcFacts& facts);
void GatherSettings(PcFacts& facts);
void GatherPrograms(PcFacts& facts);
void GatherFiles(PcFacts& facts);
void GatherInstrument(PcFacts& facts);

} // namespace routerlog
