// Messages of the test's own thread.
#pragma once

#include "tests/support/WaitUntil.h"
#include "win32/Windows.h"

#include <functional>

/// Dispatches what waits in this thread's queue.
void PumpMessages();

/// Dispatches messages until `holds`; false when that takes longer than support::DefaultTimeout.
bool PumpUntil(const std::function<bool()>& holds);
