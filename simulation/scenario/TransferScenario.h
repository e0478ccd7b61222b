// The transfers of usb/ by themselves: direct and buffered, aborted at any moment, on a device that comes and
// leaves.
#pragma once

namespace sim {

/// One run, everything drawn from the seed; what violates a rule ends it. No calls fail by injection.
void PlayTransfers();

} // namespace sim
