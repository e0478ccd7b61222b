// What is fixed about a port when it is created.
#pragma once

#include "ports/PortOptions.h"
#include "ports/packet/PortAddress.h"

#include <cstdint>
#include <string>

/// From the client's Register, but for the options, which come from the registry.
struct PortSettings
{
    PortAddress address;
    std::string pipeName;             // without the "\\.\pipe\" prefix
    std::int32_t readBufferSize = 0;  // bytes; bounds a client message and is the pipe's buffer towards the client
    std::int32_t writeBufferSize = 0; // bytes; the pipe's buffer from the client
    PortOptions options;
};
