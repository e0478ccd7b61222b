// The reply path by itself, read from a pipe by a thread: the way that the router keeps and never starts.
#pragma once

namespace sim {

/// One run, everything drawn from the seed; what violates a rule ends it.
void PlayReplies();

} // namespace sim
