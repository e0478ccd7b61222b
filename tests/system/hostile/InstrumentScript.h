// What the instrument of the hostile cases does to the router.
#pragma once

#include "win32/Windows.h"

#include <string>
#include <string_view>
#include <vector>

namespace hostile {

/// A request from its port makes the instrument do `actions`.
struct Misdeed
{
    const char* name;
    std::string actions; // in the instrument's script language
};

/// Such after which the stream is whole again: what they begin they end.
const std::vector<Misdeed>& Misdeeds();

/// A request of 200 bytes from its port makes the instrument go away in the middle of the answer.
struct Leaving
{
    const char* name;
    int answered; // bytes of the answer's 214 that still leave
    int backMs;
};
const std::vector<Leaving>& Leavings();

ULONG PortOfMisdeed(std::string_view name);
ULONG PortOfLeaving(std::string_view name);

/// Every misdeed ends with a packet to this port.
inline constexpr ULONG SeenPort = 250;

/// The script of all of it. Everything else is echoed.
std::string InstrumentScript();

} // namespace hostile
