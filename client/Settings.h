// What a client has chosen for a port.
#pragma once

#include "client/Registration.h"

#include <cstdint>

namespace clientlib {

struct Settings
{
    PortRegistration registration;
    std::uint32_t flags = 0; // MORVANE_QUEUE, ...
    std::uint32_t openTimeout = 0;
    std::uint32_t queueLimit = 0;
    morvane_match unsolicited = nullptr;
    void* unsolicitedContext = nullptr;

    bool Has(std::uint32_t flag) const noexcept { return (flags & flag) != 0; }
};

} // namespace clientlib
