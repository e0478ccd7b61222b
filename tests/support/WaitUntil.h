// Waiting in tests: always for something, never for a time.
#pragma once

#include "win32/Windows.h"

#include <chrono>
#include <functional>

namespace support {

/// How long a test waits for what must happen. Long enough for a loaded machine: it is spent only by a failure.
inline constexpr std::chrono::milliseconds DefaultTimeout{20'000};

/// Waits until `object` is signalled; false when `timeout` is over first. Consumes an auto-reset event.
bool WaitFor(HANDLE object, std::chrono::milliseconds timeout = DefaultTimeout);

/// Asks `holds` about every millisecond until it says true; false when `timeout` is over first. Only for states
/// that no event announces.
bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds timeout = DefaultTimeout);

} // namespace support
