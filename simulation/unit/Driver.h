// The driver of the simulated instruments, in the simulated Windows.
#pragma once

namespace sim {

/// At the begin of a run: eight free slots, nothing plugged.
void LoadInstrumentDriver();

} // namespace sim
