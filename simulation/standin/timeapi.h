// Stand-in for <timeapi.h>.
#pragma once

#define TIMERR_NOERROR 0u
#define TIMERR_NOCANDO 97u
