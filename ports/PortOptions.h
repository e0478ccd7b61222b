// What the registry says about all ports of the router.
#pragma once

#include "win32/Windows.h"

/// Read once at start-up; the same for every port.
struct PortOptions
{
    /// How long a stopping port waits for its client to read what was written, in milliseconds. 0: without limit.
    DWORD flushLimitMs = 0;
    /// Only the router's own user, SYSTEM and administrators of this machine may open the pipe.
    bool restrictPipe = false;
};
