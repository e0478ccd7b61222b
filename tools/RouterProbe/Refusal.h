// Why a port cannot be used, in the probe's words.
#pragma once

#include "ProbeOptions.h"

#include "client/morvane_client.h"

/// `why` is an event of the library: MORVANE_EVENT_NOT_YET, or one that something has gone.
ProbeFault FaultOf(const ProbePort& port, const morvane_event& why);

/// Whether trying again is of no use.
bool IsFinal(const ProbeFault& fault);
/// Whether the fault is the router's, and not the port's.
bool IsOfTheRouter(const ProbeFault& fault);
