// Packet bytes as people read them in a trace line.
#pragma once

#include <cstdint>
#include <string>

/// Appends the first min(`limit`, `length`) bytes: "%c " for a printable character, ".. " for the blank, "%02X "
/// for any other byte and, with `hexOnly`, for every byte; then " ~more~" when `length` is not below `limit`. By
/// design it says so for exactly `limit` bytes too, where nothing was cut. Throws std::bad_alloc.
void AppendPacketText(const std::uint8_t* data, std::uint32_t length, std::uint32_t limit, bool hexOnly,
                      std::string& out);
