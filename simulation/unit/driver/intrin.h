// Stand-in for <intrin.h>, of which the driver of the simulated instruments needs nothing.
#pragma once
