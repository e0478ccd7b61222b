// The scenario of a run, played by its fiber 0.
#pragma once

#include "simulation/scenario/Plan.h"

namespace sim {

/// As drawn from the seed.
void PlayScenario();
void Play(const Plan& plan);

} // namespace sim
