// Rows about bytes alone: packet text, framing, parsing. Portable.
#pragma once

#include "bench/Measure.h"
#include "bench/Table.h"

#include <cstdint>
#include <functional>
#include <span>

namespace bench {

using Span = std::span<const std::uint8_t>;
/// Gets the payload of each packet that a parser finds.
using PacketWatch = std::function<void(Span payload)>;
/// Finds the packets in a block, a whole number of them.
using BlockParser = std::function<void(Span block, const PacketWatch& watch)>;

void AddDumpAndFramingRows(Table& table, const RunSize& run);

/// `name` tells whose parser it is.
void AddParsingRows(Table& table, const RunSize& run, const BlockParser& parse, const std::string& name);

} // namespace bench
