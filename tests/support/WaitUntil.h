// Waiting in tests: always for something, never for a time.
#pragma once

#include "win32/Windows.h"

#include <chrono>
#include <functional>

namespace support {

/// How long a test waits for what must happen. Long enough for a loaded machine: it is spent only by a failure.
inline constexpr std::chrono::milliseconds Patience{20'000};

/// Waits until `object` is signalled; false when `patience` is over first. Consumes an auto-reset event.
bool WaitFor(HANDLE object, std::chrono::milliseconds patience = Patience);

/// Asks `holds` about every millisecond until it says true; false when `patience` is over first. Only for states
/// that no event announces.
bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds patience = Patience);

} // namespace support
