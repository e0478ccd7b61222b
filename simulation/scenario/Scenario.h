// One run: a router with its ports, their clients, an instrument, and those who disturb them.
#pragma once

namespace sim {

/// The main thread of a run; what happens is drawn from its seed.
void PlayScenario();

} // namespace sim
