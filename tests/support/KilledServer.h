// What remains of a COM server that was killed.
#pragma once

/// To be called after a test has killed a router. Wine's service for COM keeps the class registration of a process
/// that was killed and hands it to every later client. A process that ends takes its registration back in its last
/// call, which is lost now and then on a busy machine (once in some 500 ends). Restarted, the service has
/// forgotten. The next call to the service must come from the calling process: its old connection fails for 30 s
/// once another process has started the service. Windows notices the end by itself, and its service cannot be
/// stopped.
void ForgetKilledServers();
