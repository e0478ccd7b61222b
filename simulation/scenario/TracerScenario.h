// The tracer by itself: threads that trace, a disk that is slow, full or held by others, changed settings.
#pragma once

namespace sim {

/// One run, everything drawn from the seed; what violates a rule ends it.
void PlayTracer();

} // namespace sim
