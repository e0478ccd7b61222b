// What another process holds of Windows.
#pragma once

#include "win32/Windows.h"

#include <cstddef>
#include <vector>

struct ProcessUsage
{
    DWORD handles = 0;
    std::size_t privateBytes = 0;
    DWORD threads = 0;
};

/// All 0 when no such process runs.
ProcessUsage UsageOf(DWORD processId);

/// Ids of its threads.
std::vector<DWORD> ThreadsOf(DWORD processId);
