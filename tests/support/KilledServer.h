// What remains of a COM server that was killed.
#pragma once

/// To be called after a test has killed a router or ended it without the last release. Wine's service for COM
/// keeps the class registration of a process that was killed and hands it to every later client. A process that
/// ends takes its registration back in its last call, which is lost now and then on a busy machine (once in some
/// 500 ends). Restarted, the service has forgotten. Windows notices the end by itself, and its service cannot be
/// stopped.
void ForgetKilledServers();
