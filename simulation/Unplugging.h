// A day on which the cable is pulled again and again: how long a client waits for its answer then.
#pragma once

#include "simulation/Arguments.h"

namespace sim {

/// The exit code of the program.
int RunUnplugging(const Arguments& arguments);

} // namespace sim
