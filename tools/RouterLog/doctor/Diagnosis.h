// What is wrong with a PC, with a remedy each. Portable.
#pragma once

#include "tools/RouterLog/doctor/PcFacts.h"

#include <string>
#include <vector>

namespace routerlog {

struct Finding
{
    std::string key;    // for programs and tests
    std::string fault;  // a sentence
    std::string remedy; // a sentence
};

/// The faults of the PC, the gravest first; empty on a healthy one. `ownVersion` is RouterLog's, "1.0.0.0".
std::vector<Finding> Diagnose(const PcFacts& facts, const std::string& ownVersion);

/// The findings as text: a line for a healthy PC, or three lines each.
std::string DiagnosisText(const PcFacts& facts, const std::vector<Finding>& findings);

} // namespace routerlog
