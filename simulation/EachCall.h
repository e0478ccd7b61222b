// A scripted session in which every call fails once.
#pragma once

#include "simulation/Arguments.h"

namespace sim {

/// The exit code of the program.
int RunEachCall(const Arguments& arguments);

} // namespace sim
