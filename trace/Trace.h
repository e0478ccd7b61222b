// The trace call: the one thing that every module uses. A call whose line is not wanted costs one table look-up.
#pragma once

#include "trace/TraceMask.h"

#include <cstdint>
#include <span>
#include <string>

/// Reports one line on `device`'s channel in the class `classMask`. Any thread; never waits and never throws.
/// Lines beyond 2055 characters are cut. Without an installed sink nothing happens.
void Trace(std::int32_t device, std::uint32_t classMask, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

/// Renders `length` bytes for a line of that class into `out`; true when such a line is wanted. Any thread.
bool DumpPacket(std::int32_t device, std::uint32_t classMask, const std::uint8_t* data, std::uint32_t length,
                bool hexOnly, std::string& out) noexcept;

/// The same, with printable characters as they are; empty when no such line is wanted.
std::string PacketDump(std::int32_t device, std::uint32_t classMask, std::span<const std::uint8_t> bytes) noexcept;
