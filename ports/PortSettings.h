// What is fixed about a port when it is created.
#pragma once

#include "ports/packet/PortAddress.h"
#include "win32/Windows.h"

#include <cstdint>
#include <string>

/// What the registry says about all ports of the router, read once at start-up.
struct PortOptions
{
    /// How long a stopping port waits for its client to read what was written, in milliseconds. 0: without limit.
    DWORD flushLimitMs = 0;
    /// Only the router's own user, SYSTEM and administrators of this machine may open the pipe.
    bool restrictPipe = false;
};

/// From the client's Register, but for the options, which come from the registry.
struct PortSettings
{
    PortAddress address;
    std::string pipeName;             // without the "\\.\pipe\" prefix
    std::int32_t readBufferSize = 0;  // bytes; bounds a client message and is the pipe's buffer towards the client
    std::int32_t writeBufferSize = 0; // bytes; the pipe's buffer from the client
    PortOptions options;
};
