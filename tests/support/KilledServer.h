// What remains of a COM server that was killed.
#pragma once

/// To be called after a test has killed a router. Wine's service for COM keeps the class registration of a process that
/// did not end by itself and hands it to every later client; restarted, it has forgotten. Windows forgets by itself, and
/// its service cannot be stopped.
void ForgetKilledServers();
